#include "velmora/report_page.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "velmora/report_images.h"
#include "velmora/viewer_assets.h"

namespace velmora::tool {

namespace {

// Text for HTML element content and attribute values.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string fixed(double value, int decimals) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(decimals) << value;
  return out.str();
}

// The 360 view's settings: the viewer-ready file and where its window lies on the sphere.
std::string viewerSettings(const ReportPanorama& panorama) {
  const SphereWindow& window = panorama.window;
  const double centreRow = window.top + window.height * 0.5;
  const nlohmann::json settings = {{"type", "equirectangular"},
                                   {"panorama", panorama.viewerReadyFile},
                                   {"autoLoad", panorama.loadAtOnce},
                                   {"haov", 360.0 * window.width / window.fullWidth},
                                   {"vaov", 180.0 * window.height / window.fullHeight},
                                   {"vOffset", 90.0 - 180.0 * centreRow / window.fullHeight},
                                   {"hfov", 100.0},
                                   {"showZoomCtrl", true}};
  return settings.dump();
}

// An image with the six seam bands drawn over it, each labelled.
void bandedImage(std::ostream& html, const std::string& file, const std::string& description,
                 const std::optional<sim::PanoramaAgreement>& agreement) {
  html << "<figure class=\"banded\"><div class=\"frame\"><img src=\"" << escaped(file)
       << "\" alt=\"" << escaped(description) << "\">";
  for (int band = 0; band < sim::kHeadPositions; ++band) {
    html << "<div class=\"band\" style=\"left:" << fixed(100.0 * band / 6, 4)
         << "%;width:" << fixed(100.0 / 6, 4) << "%\"><span>" << band << ": shots " << band
         << "&ndash;" << (band + 1) % sim::kHeadPositions;
    if (agreement && agreement->bands[band].pixels > 0) {
      html << "<br>" << fixed(agreement->bands[band].psnr, 1) << " dB";
    }
    html << "</span></div>";
  }
  html << "</div><figcaption>" << escaped(description) << "</figcaption></figure>\n";
}

void figureRow(std::ostream& html, const std::string& region, const sim::Agreement& agreement) {
  html << "<tr><th scope=\"row\">" << region << "</th>";
  if (agreement.pixels == 0) {
    html << "<td>&ndash;</td><td>&ndash;</td><td>0</td></tr>\n";
    return;
  }
  html << "<td>" << fixed(agreement.psnr, 2) << "</td><td>" << fixed(agreement.ssim, 4)
       << "</td><td>" << agreement.pixels << "</td></tr>\n";
}

void agreementTable(std::ostream& html, const sim::PanoramaAgreement& agreement) {
  html << "<table class=\"figures\"><caption>Against the ground truth, over the seen region less "
          "its "
       << sim::kSeenRimPixels
       << "-pixel rim</caption>\n<thead><tr><th scope=\"col\">Region</th><th scope=\"col\">PSNR "
          "(dB)</th><th scope=\"col\">SSIM</th><th scope=\"col\">Pixels</th></tr></thead>\n"
          "<tbody>\n";
  figureRow(html, "whole panorama", agreement.whole);
  for (int band = 0; band < sim::kHeadPositions; ++band) {
    figureRow(html, "band " + std::to_string(band), agreement.bands[band]);
  }
  html << "</tbody></table>\n";
}

void panoramaSection(std::ostream& html, const ReportPanorama& panorama) {
  html << "<section class=\"panorama\" id=\"" << escaped(panorama.id) << "\">\n<h2>"
       << escaped(panorama.title) << "</h2>\n";
  html << "<div class=\"viewer\" id=\"view-" << escaped(panorama.id) << "\" data-settings=\""
       << escaped(viewerSettings(panorama))
       << "\"><noscript><p>The 360 view needs JavaScript; the viewer-ready file is linked "
          "below.</p></noscript></div>\n";
  html << "<p class=\"files\">Drag to look around. Files: <a href=\""
       << escaped(panorama.viewerReadyFile) << "\">viewer-ready 360 JPEG</a> ("
       << panorama.window.width << "&times;" << panorama.window.height << ", photo-sphere "
       << "metadata), <a href=\"" << escaped(panorama.flatFile)
       << "\">the library's framed panorama</a>.</p>\n";
  html << "<h3>Seam bands</h3>\n";
  bandedImage(html, panorama.flatFile,
              "The panorama as the library wrote it; band i is where shot i gives way to the next.",
              std::nullopt);
  if (!panorama.heatMapFile.empty()) {
    html << "<h3>Error against the ground truth</h3>\n";
    bandedImage(html, panorama.heatMapFile,
                "Mean colour difference per pixel: black 0, red, yellow, white " +
                    fixed(kHeatMapFullScale, 0) +
                    " levels or more; grey where no shot sees the scene.",
                panorama.agreement);
  }
  if (panorama.agreement) agreementTable(html, *panorama.agreement);
  html << "</section>\n";
}

void capturesTable(std::ostream& html, std::vector<ReportCapture> captures) {
  std::stable_partition(captures.begin(), captures.end(),
                        [](const ReportCapture& capture) { return !capture.result.done(); });
  const auto notDone =
      std::count_if(captures.begin(), captures.end(),
                    [](const ReportCapture& capture) { return !capture.result.done(); });
  html << "<section id=\"captures\">\n<h2>Captures</h2>\n<p>" << captures.size() << " captures, "
       << notDone << " not done.</p>\n<table class=\"captures\">\n<thead><tr><th scope=\"col\">"
       << "Preview</th><th scope=\"col\">Capture</th><th scope=\"col\">Operation</th><th "
          "scope=\"col\">Outcome</th><th scope=\"col\">Seconds</th><th scope=\"col\">Output"
          "</th></tr></thead>\n<tbody>\n";
  for (const ReportCapture& capture : captures) {
    html << "<tr class=\"" << (capture.result.done() ? "done" : "failed") << "\"><td>";
    if (!capture.thumbnailFile.empty()) {
      const std::string image = "<img src=\"" + escaped(capture.thumbnailFile) + "\" alt=\"" +
                                escaped(capture.result.name) + "\">";
      html << (capture.panoramaId.empty()
                   ? image
                   : "<a href=\"#" + escaped(capture.panoramaId) + "\">" + image + "</a>");
    }
    html << "</td><td>" << escaped(capture.result.name) << "</td><td>"
         << escaped(capture.result.operation) << "</td><td>" << escaped(capture.result.outcome);
    if (capture.result.outcome != "not run") html << " (status " << capture.result.code << ")";
    if (!capture.result.error.empty()) {
      html << "<br><span class=\"error\">" << escaped(capture.result.error) << "</span>";
    }
    html << "</td><td>" << fixed(capture.result.seconds, 1) << "</td><td>"
         << escaped(capture.result.output) << "</td></tr>\n";
  }
  html << "</tbody></table>\n</section>\n";
}

// Starts every 360 view; a view marks itself loaded (data-loaded) or failed (data-error).
constexpr char kViewerStart[] = R"(<script src="pannellum.js"></script>
<script>
document.querySelectorAll('.viewer').forEach(function (element) {
  var viewer = pannellum.viewer(element, JSON.parse(element.dataset.settings));
  viewer.on('load', function () { element.dataset.loaded = 'true'; });
  viewer.on('error', function (message) {
    element.dataset.error = message;
    console.error('360 view ' + element.id + ': ' + message);
  });
});
</script>
)";

}  // namespace

std::string reportHtml(const ReportContent& content) {
  std::ostringstream html;
  html << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
       << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>"
       << escaped(content.title) << "</title>\n<link rel=\"icon\" href=\"data:,\">\n"
       << "<link rel=\"stylesheet\" href=\"pannellum.css\">\n"
       << "<link rel=\"stylesheet\" href=\"report.css\">\n</head>\n<body>\n<header>\n<h1>"
       << escaped(content.title) << "</h1>\n<p>" << escaped(content.summary) << "</p>\n";
  if (!content.panoramas.empty()) {
    html << "<nav><ul>";
    for (const ReportPanorama& panorama : content.panoramas) {
      html << "<li><a href=\"#" << escaped(panorama.id) << "\">" << escaped(panorama.title)
           << "</a></li>";
    }
    html << "</ul></nav>\n";
  }
  html << "</header>\n<main>\n";
  if (!content.captures.empty()) capturesTable(html, content.captures);
  for (const ReportPanorama& panorama : content.panoramas) panoramaSection(html, panorama);
  html << "</main>\n";
  if (!content.panoramas.empty()) html << kViewerStart;
  html << "</body>\n</html>\n";
  return html.str();
}

void writeReportPage(const std::string& reportFolder, const ReportContent& content) {
  copyViewerAssets(reportFolder);
  const std::string path = reportFolder + "/index.html";
  std::ofstream file(path, std::ios::binary);
  file << reportHtml(content);
  file.close();
  if (!file) throw std::runtime_error("Cannot write " + path + ".");
}

}  // namespace velmora::tool
