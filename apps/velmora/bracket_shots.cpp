#include "velmora/bracket_shots.h"

#include <filesystem>
#include <stdexcept>

namespace velmora::tool {

namespace {

namespace fs = std::filesystem;

// The simulator's file of exposure e at position p, or empty when there is none.
std::string simulatedBracketFile(const std::string& folder, int position, int exposure) {
  const std::string stem =
      folder + "/Up_" + std::to_string(position) + "_" + std::to_string(exposure);
  for (const char* extension : {".jpg", ".jpeg", ".png"}) {
    if (fs::is_regular_file(stem + extension)) return stem + extension;
  }
  return "";
}

std::vector<std::vector<std::string>> bracketsInFolder(const std::string& folder) {
  std::vector<std::vector<std::string>> positions(kHeadPositions);
  for (int p = 0; p < kHeadPositions; ++p) {
    for (int e = 0; e < kSlotsPerPosition; ++e) {
      const std::string file = simulatedBracketFile(folder, p, e);
      if (file.empty()) break;
      positions[p].push_back(file);
    }
    if (positions[p].size() != positions[0].size()) {
      throw std::invalid_argument("Head position " + std::to_string(p) + " in " + folder + " has " +
                                  std::to_string(positions[p].size()) + " exposures (Up_" +
                                  std::to_string(p) + "_<e>), position 0 has " +
                                  std::to_string(positions[0].size()) + ".");
    }
  }
  if (positions[0].size() < 2) {
    throw std::invalid_argument("No bracket of two or three exposures in " + folder +
                                " (files Up_<position>_<exposure>.jpg as `velmora simulate "
                                "--exposures 2,1,0.5` writes them).");
  }
  return positions;
}

std::vector<std::vector<std::string>> bracketsFromPaths(const std::vector<std::string>& paths) {
  if (paths.size() != 12 && paths.size() != 18) {
    throw std::invalid_argument(
        "Give 12 or 18 shots (two or three exposures of each of the six "
        "head positions) or one folder, not " +
        std::to_string(paths.size()) + " paths.");
  }
  for (const std::string& path : paths) {
    if (!fs::is_regular_file(path)) throw std::invalid_argument("No shot file " + path + ".");
  }
  const size_t perPosition = paths.size() / kHeadPositions;
  std::vector<std::vector<std::string>> positions(kHeadPositions);
  for (size_t k = 0; k < paths.size(); ++k) positions[k / perPosition].push_back(paths[k]);
  return positions;
}

}  // namespace

BracketShots resolveBracketShots(const std::vector<std::string>& arguments, int exposureCount) {
  BracketShots shots;
  const bool oneFolder = arguments.size() == 1 && fs::is_directory(arguments[0]);
  if (oneFolder) shots.folder = arguments[0];
  const std::vector<std::vector<std::string>> positions =
      oneFolder ? bracketsInFolder(shots.folder) : bracketsFromPaths(arguments);

  shots.exposureCount = static_cast<int>(positions[0].size());
  if (exposureCount != 0 && exposureCount != shots.exposureCount) {
    throw std::invalid_argument("The shots hold " + std::to_string(shots.exposureCount) +
                                " exposures per head position, not " +
                                std::to_string(exposureCount) + ".");
  }
  shots.slots.assign(kHeadPositions * kSlotsPerPosition, "");
  for (int p = 0; p < kHeadPositions; ++p) {
    for (int e = 0; e < shots.exposureCount; ++e) {
      shots.slots[p * kSlotsPerPosition + e] = positions[p][e];
    }
  }
  return shots;
}

std::string configurationFor(const std::string& given, const BracketShots& shots,
                             const std::string& fileName, const std::string& option) {
  if (!given.empty()) return given;
  if (shots.folder.empty()) {
    throw std::invalid_argument(option + " is required when the shots are given one by one.");
  }
  const std::string path = shots.folder + "/" + fileName;
  if (!fs::is_regular_file(path))
    throw std::invalid_argument("No " + path + "; give " + option + ".");
  return path;
}

}  // namespace velmora::tool
