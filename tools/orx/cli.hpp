// The command line's conventions, shared by every sub-command: usage errors
// exit 2 with one line naming the problem and where help is, "orx help
// COMMAND" and "orx COMMAND --help" describe a command, "orx --version"
// names the tool's and the library's versions, and an unknown command is
// named as such.
#pragma once

#include <CLI/CLI.hpp>

namespace orx::tool {

// Adds the version flag and the help command to app, whose sub-commands are
// all declared, and parses.  Returns -1 when the chosen command should run,
// else the exit status: 0 after help or the version, 2 after a usage error.
int parse_command_line(CLI::App &app, int argc, char **argv);

}  // namespace orx::tool
