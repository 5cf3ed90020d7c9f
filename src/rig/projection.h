// Resampling of shots onto the panorama grid through a projection table.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "rig/camera_model.h"

namespace velmora {

// Projects one 8-bit BGR shot of size1 columns by size2 rows onto a black grid of the table's
// size. A cell whose record has u or v exactly 0 stays black. Interior cells (x0 > 1,
// x0 < size1 - 2, y0 >= 2, y0 < size2 - 2 with x0 = floor(u), y0 = floor(v)) take the bilinear
// mix of their four neighbours in single precision, truncated to the byte; every other cell takes
// pixel (x0, y0) unchanged. Throws Failure when the shot's size or type does not fit the model.
cv::Mat projectShot(const cv::Mat& shot, const cv::Mat& table, const CameraGeometry& geometry);

// Projects every shot on a thread of its own; all threads are joined before it returns. Only the
// grid's `gridColumns` are projected, the others stay black: a caller that reads a part of the
// grid pays for that part alone (the memory of the black columns is never touched).
std::vector<cv::Mat> projectShots(const std::vector<cv::Mat>& shots, const cv::Mat& table,
                                  const CameraGeometry& geometry,
                                  cv::Range gridColumns = cv::Range::all());

// The cells of every table row that a projection of the grid's `gridColumns` computes: those
// between the row's first and last seen cell, within gridColumns.
std::vector<cv::Range> projectedColumns(const cv::Mat& table,
                                        cv::Range gridColumns = cv::Range::all());

// projectShot over the given cells of every row (projectedColumns of the same table), the other
// cells black. Throws Failure when the shot does not fit the model.
cv::Mat projectShotColumns(const cv::Mat& shot, const cv::Mat& table,
                           const CameraGeometry& geometry, const std::vector<cv::Range>& columns);

}  // namespace velmora
