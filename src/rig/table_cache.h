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

// Loads the table at path into the model as the file is: a file shorter than the model's grid
// fills the grid's first cells and leaves the others unseen (0, 0); a longer one is read up to
// the grid's size. Returns false only when the file cannot be opened.
bool loadTableAsFound(CameraModel& model, const std::string& path);

// Writes the model's table to path. The bytes go to a temporary file in the same directory that
// is renamed into place, so a reader never sees a partly written table. Throws Failure when the
// file cannot be written; nothing is left behind then.
void writeTable(const CameraModel& model, const std::string& path);

// Computes the model's table and writes it to path.
void buildTable(CameraModel& model, const std::string& path);

// Loads the cached table at path, or computes and writes it when it cannot be loaded.
void ensureTable(CameraModel& model, const std::string& path);

// Loads the table at path as loadTableAsFound does, or computes and writes it when there is no
// file to open: a file that is there, made for whatever grid, is never replaced.
void ensureTableKeepingFile(CameraModel& model, const std::string& path);

}  // namespace velmora
