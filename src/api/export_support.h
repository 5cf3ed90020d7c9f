// Shared plumbing of the thin exported functions: handle recovery, the null checks and the guard.
#pragma once

#include <string>

#include "api/export_guard.h"
#include "api/stitch_handle.h"
#include "api/video_stitch_handle.h"
#include "common/console.h"
#include "common/status.h"

namespace velmora {

// Status returned by the getters for a null handle: -1 read as unsigned.
inline constexpr unsigned int kNullHandleCode = 0xFFFFFFFFu;

// Converts a path argument to text; a null pointer is a detected failure naming the argument.
inline std::string requireText(const char* text, const char* argument) {
  if (text == nullptr) throw Failure(std::string("Missing ") + argument + ": null pointer.");
  return std::string(text);
}

// Runs body(handle) under the export guard, or reports a null handle and returns.
template <typename Handle, typename Body>
void withHandle(void* h, const char* function, Body&& body) noexcept {
  if (h == nullptr) {
    try {
      console::err(function, ": null handle.");
    } catch (...) {
    }
    return;
  }
  Handle& handle = *static_cast<Handle*>(h);
  runGuarded(handle.code, [&] { body(handle); });
}

template <typename Body>
void withStitchHandle(void* h, const char* function, Body&& body) noexcept {
  withHandle<StitchHandle>(h, function, std::forward<Body>(body));
}

template <typename Body>
void withVideoHandle(void* h, const char* function, Body&& body) noexcept {
  withHandle<VideoStitchHandle>(h, function, std::forward<Body>(body));
}

}  // namespace velmora
