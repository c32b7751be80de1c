#include "Diagnose/SymbolNames.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace Diagnose {

namespace {

// The parts into which the compiler takes a function apart, or by which it tells copies of it.
constexpr std::string_view cloneSuffixes[] = {".cold",     ".part",       ".constprop", ".isra",
                                              ".lto_priv", ".localalias", ".llvm"};

// Last arguments of templates that are left to their defaults nearly always; the number is the
// extent of a span that does not know its size.
constexpr std::string_view defaultArguments[] = {
    "std::allocator<", "std::char_traits<", "std::default_delete<",  "std::less<",
    "std::equal_to<",  "std::hash<",        "18446744073709551615ul"};

struct Alias {
    std::string_view full;
    std::string_view common;
};
constexpr Alias aliases[] = {
    {"std::basic_string<char, std::pmr::polymorphic_allocator<char>>", "std::pmr::string"},
    {"std::basic_string<char>", "std::string"},
    {"std::basic_string_view<char>", "std::string_view"},
    {"std::basic_ostream<char>", "std::ostream"},
    {"std::basic_istream<char>", "std::istream"},
    {"std::basic_iostream<char>", "std::iostream"},
    {"std::basic_ios<char>", "std::ios"},
    {"std::basic_streambuf<char>", "std::streambuf"},
    {"std::basic_filebuf<char>", "std::filebuf"},
    {"std::basic_stringbuf<char>", "std::stringbuf"},
    {"std::basic_ofstream<char>", "std::ofstream"},
    {"std::basic_ifstream<char>", "std::ifstream"},
    {"std::basic_ostringstream<char>", "std::ostringstream"},
    {"std::basic_istringstream<char>", "std::istringstream"},
    {"std::basic_stringstream<char>", "std::stringstream"},
};

// Names may nest without end; beyond this they stay as they are.
constexpr int mostNesting = 100;

constexpr std::string_view anonymous = "(anonymous namespace)";
constexpr std::string_view operatorWord = "operator";

bool isPartOfName(char letter)
{
    return letter == '_' || (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z');
}

// The length of an operator's name at the beginning of a text, brackets included; 0 for none.
std::size_t operatorLength(std::string_view text)
{
    if (!text.starts_with(operatorWord))
        return 0;
    constexpr std::string_view signs[] = {"()", "[]", "<=>", "<<=", ">>=", "->*", "->",
                                          "<<", ">>", "<=",  ">=",  "<",   ">"};
    const std::string_view rest = text.substr(operatorWord.size());
    for (const std::string_view sign : signs) {
        if (rest.starts_with(sign))
            return operatorWord.size() + sign.size();
    }
    const bool isWord = !rest.empty() && isPartOfName(rest[0]);
    return isWord ? 0 : operatorWord.size();
}

// Where a word begins that an operator's name may be.
bool isWordStart(std::string_view text, std::size_t at)
{
    return at == 0 || !isPartOfName(text[at - 1]);
}

std::string_view withoutCloneSuffix(std::string_view symbol)
{
    for (const std::string_view suffix : cloneSuffixes) {
        const std::size_t found = symbol.find(suffix);
        if (found == std::string_view::npos || found == 0)
            continue;
        const std::string_view rest = symbol.substr(found + suffix.size());
        if (rest.empty() || rest[0] == '.')
            symbol = symbol.substr(0, found);
    }
    return symbol;
}

bool isLeftToDefault(std::string_view argument)
{
    for (const std::string_view beginning : defaultArguments) {
        if (argument.starts_with(beginning))
            return true;
    }
    return false;
}

void replaceAll(std::string& text, std::string_view old, std::string_view replacement)
{
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos;
         at += replacement.size())
        text.replace(at, old.size(), replacement);
}

// Reads a name and writes it again, argument list by argument list.
class TemplateShortener {
public:
    explicit TemplateShortener(std::string_view demangled) : text(demangled) {}

    std::string shorten() { return upTo("", 0); }

private:
    // What comes before one of the ending letters that is not within brackets of any kind.
    std::string upTo(std::string_view endings, int nesting)
    {
        std::string result;
        int round = 0;
        while (at < text.size()) {
            if (const std::size_t length =
                    isWordStart(text, at) ? operatorLength(text.substr(at)) : 0;
                length != 0) {
                take(result, length);
                continue;
            }
            const char letter = text[at];
            if (round == 0 && endings.find(letter) != std::string_view::npos)
                break;
            if (letter == '<' && nesting < mostNesting) {
                ++at;
                appendArguments(result, nesting + 1);
                continue;
            }
            if (letter == '(' || letter == '{')
                ++round;
            else if ((letter == ')' || letter == '}') && round > 0)
                --round;
            take(result, text.substr(at).starts_with("->") ? 2 : 1);
        }
        return result;
    }

    void take(std::string& result, std::size_t length)
    {
        result.append(text.substr(at, length));
        at += length;
    }

    void appendArguments(std::string& result, int nesting)
    {
        std::vector<std::string> arguments;
        for (bool isMore = true; isMore;) {
            arguments.push_back(upTo(",>", nesting));
            while (arguments.back().ends_with(' '))
                arguments.back().pop_back();
            isMore = at < text.size() && text[at] == ',';
            if (at < text.size())
                ++at;
            while (isMore && at < text.size() && text[at] == ' ')
                ++at;
        }
        dropDefaults(arguments);
        const std::size_t start = startOfName(result);
        result.push_back('<');
        for (std::size_t i = 0; i < arguments.size(); ++i)
            result.append(i == 0 ? "" : ", ").append(arguments[i]);
        result.push_back('>');
        for (const Alias& alias : aliases) {
            if (std::string_view(result).substr(start) == alias.full)
                result.replace(start, std::string::npos, alias.common);
        }
    }

    static void dropDefaults(std::vector<std::string>& arguments)
    {
        // The traits of a text may be followed by an allocator of its own.
        if (arguments.size() > 1 && arguments[1].starts_with("std::char_traits<"))
            arguments.erase(arguments.begin() + 1);
        while (arguments.size() > 1 && isLeftToDefault(arguments.back()))
            arguments.pop_back();
    }

    static std::size_t startOfName(const std::string& result)
    {
        std::size_t start = result.size();
        while (start > 0 && (isPartOfName(result[start - 1]) || result[start - 1] == ':'))
            --start;
        return start;
    }

    std::string_view text;
    std::size_t at = 0;
};

// Walks over a name and leaves out what stands in brackets.
class NameStripper {
public:
    explicit NameStripper(std::string_view readable) : text(readable) {}

    std::string strip()
    {
        while (at < text.size() && step())
            continue;
        while (name.ends_with(' '))
            name.pop_back();
        return name;
    }

private:
    // False at the end of the name.
    bool step()
    {
        const std::string_view rest = text.substr(at);
        if (rest.starts_with(anonymous))
            return take(anonymous.size());
        if (const std::size_t length = isWordStart(text, at) ? operatorLength(rest) : 0) {
            isConversion = rest.starts_with("operator ");
            return take(length);
        }
        switch (rest[0]) {
            case '<':
                return skip(lengthOfBrackets('<', '>'));
            case '(':
                return skip(lengthOfBrackets('(', ')')) && isWithinFunction();
            case '{':
                return take(lengthOfBrackets('{', '}'));
            case ' ':
                return isConversion ? take(1) : endReturnType();
            default:
                return take(1);
        }
    }

    // What came before a blank was the return type, unless it was an operator's sign.
    bool endReturnType()
    {
        ++at;
        if (at < text.size() && text[at] != '<')
            name.clear();
        return true;
    }

    // Behind the parameters of a function: whether what is meant is something within it.
    bool isWithinFunction()
    {
        for (const std::string_view qualifier : {" const", " volatile", " &&", " &"}) {
            if (text.substr(at).starts_with(qualifier))
                at += qualifier.size();
        }
        return text.substr(at).starts_with("::");
    }

    bool take(std::size_t length)
    {
        name.append(text.substr(at, length));
        at += length;
        return true;
    }

    bool skip(std::size_t length)
    {
        at += length;
        return true;
    }

    std::size_t lengthOfBrackets(char open, char close) const
    {
        int depth = 0;
        for (std::size_t i = at; i < text.size(); ++i) {
            if (text[i] == '-' && i + 1 < text.size() && text[i + 1] == '>')
                ++i;
            else if (text[i] == open)
                ++depth;
            else if (text[i] == close && --depth == 0)
                return i + 1 - at;
        }
        return text.size() - at;
    }

    std::string_view text;
    std::size_t at = 0;
    std::string name;
    bool isConversion = false;
};

}  // namespace

std::string readableName(std::string_view symbol)
{
    const std::string mangled(withoutCloneSuffix(symbol));
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !demangled || !mangled.starts_with("_Z"))
        return mangled;
    return shortenedTemplates(demangled.get());
}

std::string shortenedTemplates(std::string_view demangled)
{
    std::string text(demangled);
    replaceAll(text, "std::__cxx11::", "std::");
    replaceAll(text, "[abi:cxx11]", "");
    return TemplateShortener(text).shorten();
}

std::string qualifiedName(std::string_view readable)
{
    // What has a place in the stead of a name.
    if (readable.starts_with('['))
        return std::string(readable);
    return NameStripper(readable).strip();
}

}  // namespace Diagnose
