// The one exception guard every Init and Execute export runs its body through: nothing thrown
// inside the library reaches the host.
#pragma once

#include <cstdint>
#include <new>

#include "common/console.h"
#include "common/status.h"

namespace velmora {

// Runs body(). On std::bad_alloc prints "bad_alloc caught: <what>" and stores -2; on a Failure
// prints its message and stores -1; on anything else prints "unknow error." and stores -1. The
// code is left alone when body returns normally.
template <typename Body>
void runGuarded(int32_t& code, Body&& body) noexcept {
  try {
    try {
      body();
    } catch (const std::bad_alloc& e) {
      console::err("bad_alloc caught: ", e.what());
      code = kStatusOutOfMemory;
    } catch (const Failure& e) {
      console::err(e.what());
      code = kStatusFailure;
    } catch (...) {
      console::err("unknow error.");
      code = kStatusFailure;
    }
  } catch (...) {
    // Writing the message itself failed; the code still tells the host.
    code = kStatusFailure;
  }
}

}  // namespace velmora
