// main.cpp: the qz command-line tool: dispatches to one command, and gives
// help on the tool and on every command.

#include "QzCommands.h"

#include <cstdio>
#include <cstring>

static QzCommand const kCommands[] = {
    {"version", "print the version of qz and of the library",
     "usage: qz version\n"
     "\n"
     "Prints the version of the qz tool and of the qzutil library it runs on.\n",
     RunVersionCommand},
    {"demo", "bring up the library and show components, text, errors and the log",
     "usage: qz demo\n"
     "\n"
     "Initialises the error layer (and with it the log, the allocator and the\n"
     "strings), lists the initialised components, formats narrow and UTF-16\n"
     "text, posts an error that a handler takes and a warning that is only\n"
     "logged, shows the allocator's size classes in use, prints the in-memory\n"
     "log, and shuts everything down again.\n",
     RunDemoCommand},
    {"dump", "read a crash dump, or crash a child process to make one",
     "usage: qz dump read FILE\n"
     "       qz dump test [--keep FILE]\n"
     "       qz dump crash DUMPFILE\n"
     "       qz dump <subcommand> --help\n"
     "\n"
     "read   prints the system line and the log parts of a crash dump\n"
     "test   runs qz dump crash in a child process and prints the dump it left\n"
     "crash  sets up crash dumps into DUMPFILE and crashes on purpose\n",
     RunDumpCommand},
    {"stream", "check, decode and re-encode typed stream files",
     "usage: qz stream info FILE\n"
     "       qz stream cat FILE\n"
     "       qz stream convert --to ascii|binary FILE OUT\n"
     "       qz stream <subcommand> --help\n"
     "\n"
     "info     checks the header line of a stream file and prints the form,\n"
     "         precision, debug tokens, wide-string encoding, format and filters\n"
     "cat      prints a debug stream as ascii, whatever format wrote it\n"
     "convert  re-encodes a debug stream into the binary or the ascii form\n",
     RunStreamCommand},
};

static void PrintToolHelp(FILE *out)
{
    std::fputs("usage: qz <command> [arguments]\n"
               "       qz <command> --help\n"
               "\n"
               "Commands:\n",
               out);
    for (QzCommand const &command : kCommands)
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
}

bool WantsHelp(int argc, char **argv)
{
    return argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        PrintToolHelp(stderr);
        return 2;
    }
    char const *name = argv[1];
    if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0 ||
        std::strcmp(name, "help") == 0) {
        PrintToolHelp(stdout);
        return 0;
    }
    for (QzCommand const &command : kCommands) {
        if (std::strcmp(name, command.name) != 0)
            continue;
        if (WantsHelp(argc - 1, argv + 1)) {
            std::fputs(command.usage, stdout);
            return 0;
        }
        return command.run(argc - 1, argv + 1);
    }
    std::fprintf(stderr, "qz: unknown command '%s'\n\n", name);
    PrintToolHelp(stderr);
    return 2;
}
