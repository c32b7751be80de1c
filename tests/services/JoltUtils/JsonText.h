#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "JoltUtils/Json.h"

namespace unitTests {

/// One parse with a domain of its own, which must be at zero again at the end. Nothing may come
/// from the default memory resource.
class JsonText {
public:
    explicit JsonText(std::string_view text) : isParsed(parse(text)) {}
    ~JsonText()
    {
        members.clear();
        EXPECT_EQ(domain->bytes(), 0U);
        EXPECT_EQ(domain->liveAllocations(), 0U);
    }

    JsonText(const JsonText&) = delete;
    JsonText& operator=(const JsonText&) = delete;

    bool parse(std::string_view text)
    {
        return JoltUtils::jsonParse(text.data(), text.size(), members, allocator);
    }
    const JoltUtils::TypedJson& at(const char* key) const { return members.at(key); }
    std::string formatted(bool compact = true) const
    {
        std::ostringstream stream;
        JoltUtils::jsonFormat(members, stream, compact);
        return stream.str();
    }

    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "json", 0);
    JoltUtils::JsonAllocator allocator{*domain};
    JoltUtils::JsonObject members{allocator};
    bool isParsed;
};

}  // namespace unitTests
