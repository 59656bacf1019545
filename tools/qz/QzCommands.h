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

// True when the arguments after the command name ask for its help.
bool WantsHelp(int argc, char **argv);
