#pragma once

#include <cstdio>
#include <string_view>

#include "Basis/Containers.h"

namespace vetraTests {

/// A command of the shell whose output is read line by line. One that cannot be started has none.
class RemoteCommand {
public:
    explicit RemoteCommand(const Basis::string& command);
    /// Waits for the end of the command.
    ~RemoteCommand();
    RemoteCommand(const RemoteCommand&) = delete;
    RemoteCommand& operator=(const RemoteCommand&) = delete;

    /// Gives the next line without the line feeds and tabs at its end; lines of 1000 bytes and more
    /// come in pieces. False at the end of the output.
    bool nextLine(Basis::string& line);

private:
    std::FILE* output;
};

/// Whether a name can stand in an ssh command: letters, digits, '.', '-' and '_', and no '-' first.
bool isPlainHostName(std::string_view host);

/// Whether a directory can: absolute, and nothing in it that a shell reads as more than a letter.
bool isPlainDirectory(std::string_view directory);

}  // namespace vetraTests
