// Exposure fusion: three photographs of one view at different exposures become one 8-bit BGR
// image with detail in shadows and highlights, without a radiance map. Each exposure is weighted
// per pixel by how well exposed it is and by a fixed preference that favours the later ones,
// blended in luma/chroma through Laplacian pyramids, stretched and colour balanced.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace velmora {

// Reads the three exposures (8-bit BGR via cv::imread, in order of rising preference), lifts the
// shadows of the first, fuses them and writes out as CV_8UC3 of the exposures' size, finally
// applying the white-balance gains gain1 (red), gain2 (green), gain3 (blue). Where every exposure
// is over-exposed the first one is taken. When every channel's maximum after fusion exceeds 0.9
// the result is stretched so that the smallest of those maxima becomes 255. Returns true when it
// ran to the end. An unreadable path (an empty one included) or exposures of different sizes
// raise cv::Exception; out is not touched then. Keeps no shared state: several fusions may run
// on separate threads.
bool fuseExposures(const std::string& path1, const std::string& path2, const std::string& path3,
                   cv::Mat& out, float gain1, float gain2, float gain3);

// fuseExposures on exposures of which some are already read: exposure k is exposures[k], or,
// when that is empty, read from paths[k]. The given images must be what cv::imread reads from
// their paths (8-bit BGR); the result is then the same.
bool fuseExposures(std::array<cv::Mat, 3> exposures, const std::array<std::string, 3>& paths,
                   cv::Mat& out, float gain1, float gain2, float gain3);

// How well exposed each pixel of a float image is, judged on its channel 0 (luma, 0..1):
// exp(-0.5 * 24.999998 * (Y - 0.6)^2), a Gaussian around 0.6 with sigma 0.2, and 0 wherever
// Y > 0.98. Returns a CV_32F map of the image's size. The image must be CV_32F with one or more
// channels; anything else raises cv::Exception.
cv::Mat wellExposedness(const cv::Mat& image);

// Turns three weight maps (CV_32F, usually all ones) into the blend weights of three exposures
// (float images whose channel 0 is luma, all of one size): each map is multiplied by its
// exposure's wellExposedness and raised by 1e-12; the maps are normalised to sum 1 per pixel,
// multiplied by the fixed preference 3 : 7 : 12 and normalised again. Wherever the first sum is
// below 1e-6 (no exposure usable) the first exposure gets weight 1 and the others 0. Other counts,
// sizes or types raise cv::Exception.
void computeExposureWeights(const std::vector<cv::Mat>& exposures, std::vector<cv::Mat>& weights);

}  // namespace velmora
