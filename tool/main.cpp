// vornex: every platform service from a shell.
#include <clocale>

#include "Program.h"

int main(int count, char** words)
{
    std::setlocale(LC_ALL, "");
    Tool::CProgram program;
    return program.Run(count, words);
}
