#include "tools/file_copy.h"

#include <fstream>

#include "common/console.h"

namespace velmora {

int copyFile(std::string source, std::string destination) {
  std::ifstream input(source, std::ios::in | std::ios::binary);
  if (!input.is_open()) {
    console::out("Error 1: Fail to open the source file.");
    return 0;
  }
  std::ofstream output(destination, std::ios::out | std::ios::binary | std::ios::trunc);
  if (!output.is_open()) {
    console::out("Error 2: Fail to create the new file.");
    return 0;
  }
  // One transfer through the stream buffers. An empty source inserts nothing, which marks the
  // output stream failed without being an error of the copy.
  output << input.rdbuf();
  return 1;
}

}  // namespace velmora
