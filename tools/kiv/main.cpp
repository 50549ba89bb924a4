// kiv: command-line front end of kivlib.
#include <iostream>
#include <string>
#include <vector>

#include "cli.h"

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    return kivcli::run_cli(args, std::cout, std::cerr);
}
