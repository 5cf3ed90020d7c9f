#include "tools/path_separators.h"

#include <algorithm>

namespace velmora {

std::string toNativeSeparators(std::string text, char separator) {
  std::replace(text.begin(), text.end(), '/', separator);
  return text;
}

}  // namespace velmora
