// QzCommands.h: the commands of the qz tool. Each command parses its own
// arguments (argv[0] is the command name) and returns the process exit code.
#pragma once

struct QzCommand {
    char const *name;
    char const *summary;  // one line for "qz --help"
    char const *usage;    // the full text of "qz <name> --help"
    int (*run)(int argc, char **argv);
};

int RunVersionCommand(int argc, char **argv);
int RunDemoCommand(int argc, char **argv);
int RunDumpCommand(int argc, char **argv);
int RunStreamCommand(int argc, char **argv);

// True when the first argument after the command name asks for its help; a
// command with subcommands passes on the rest, so each subcommand answers
// "--help" on its own.
bool WantsHelp(int argc, char **argv);
