/// \file
/// Asks the device files of a camera head what they answer to usual and to odd calls, and prints a
/// line an answer: the question, the result, the error, and what came back. Runs on the virtual
/// head and on a real kernel; the answers of the kernel are in kernel.txt.

#include <cstdio>

#include "tests/kernel/questions/ask.h"

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // a program that dies has told until then
    askSpi();
    askGpio();
    askI2c();
    askMemory();
}
