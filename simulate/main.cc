// Quarro_Simulate: writes a simulated survey with a known seafloor as GSF lines.
#include <iostream>

#include "simulate/command_line.h"

int main(int argc, char** argv) { return quarro::simulate::Run(argc, argv, std::cout, std::cerr); }
