// Writes the grids that tests/judge_bag.py compares with what GDAL and HDF5 read of them, each
// with a JSON file that tells what it should be.

#include <iostream>
#include <string>

#include "bag/judged_grids.h"
#include "bag/test_grid.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: bag_judge_samples FOLDER\n";
    return 2;
  }
  for (const quarro::bag::TestGrid& grid : quarro::bag::judgedGrids()) {
    const std::string path = std::string(argv[1]) + "/" + grid.name + ".bag";
    const quarro::bagError status = quarro::bag::writeGrid(path, grid);
    if (status != quarro::kBagSuccess) {
      const char* text = "unknown status";
      (void)quarro::bagGetErrorString(status, &text);
      std::cerr << path << ": " << text << "\n";
      return 1;
    }
    quarro::bag::describe(path, grid);
  }
  return 0;
}
