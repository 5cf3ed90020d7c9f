// The projection table cache file: outWidth x outHeight records of two little-endian 32-bit
// floats (u, v), rows top to bottom, no header.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "rig/camera_model.h"

namespace velmora {

// Loads the table at path into the model. Returns false when the file cannot be opened or holds
// fewer bytes than the model's grid needs (such a file is not trusted); a longer file is read up
// to the grid's size.
bool loadTable(CameraModel& model, const std::string& path);

// Writes the model's table to path. The bytes go to a temporary file in the same directory that
// is renamed into place, so a reader never sees a partly written table. Throws Failure when the
// file cannot be written; nothing is left behind then.
void writeTable(const CameraModel& model, const std::string& path);

// Computes the model's table and writes it to path.
void buildTable(CameraModel& model, const std::string& path);

// Loads the cached table at path, or computes and writes it when it cannot be loaded.
void ensureTable(CameraModel& model, const std::string& path);

}  // namespace velmora
