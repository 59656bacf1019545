// QzVersionCommand.cpp: "qz version".

#include "QzCommands.h"

#include <cstdio>

int RunVersionCommand(int argc, char **)
{
    if (argc > 1) {
        std::fputs("qz version: takes no arguments (see qz version --help)\n", stderr);
        return 2;
    }
    std::printf("qz %s\nqzutil %s\n", QZUTIL_VERSION_TEXT, QZUTIL_VERSION_TEXT);
    return 0;
}
