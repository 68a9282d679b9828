// ipg-sandbox: runs the sandbox gateway in the foreground.
#include "CommandLine.h"

int main(int argc, char** argv) { return qipg::sandbox::runProgram(argc, argv); }
