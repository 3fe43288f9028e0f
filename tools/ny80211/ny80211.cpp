// The program: hands its command line to Tool::run (main.cpp), which the
// unit tests call directly.
#include <iostream>
#include <string>
#include <vector>

#include "Tool.h"

int main(int argc, char** argv) {
  std::vector<std::string> const args(argv + 1, argv + argc);
  Tool::Io io{std::cin, std::cout, std::cerr};
  return Tool::run(args, io);
}
