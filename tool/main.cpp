// vornex: every platform service from a shell.
#include <clocale>

#include "Program.h"

// NOLINTNEXTLINE(bugprone-exception-escape): only memory running out here ends the program so
int main(int count, char** words)
{
    std::setlocale(LC_ALL, "");
    Tool::CProgram program;
    return program.Run(count, words);
}
