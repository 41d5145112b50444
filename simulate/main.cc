// Quarro_Simulate: writes a simulated survey with a known seafloor as GSF lines.
#include <csignal>
#include <iostream>

#include "simulate/command_line.h"

int main(int argc, char** argv) {
  // A limit on the size of files is told as an error of the file rather than ending the program.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  return quarro::simulate::Run(argc, argv, std::cout, std::cerr);
}
