#pragma once
// How many threads the host and the library may use for their parallel work.
//
// The environment variable VPATH_THREADS, read once when the host is loaded, caps the number of
// threads that parallel scans, walks and sorts use (1: everything runs on the calling thread).
// Without it, all cores are used.

#include <cstddef>

#include <velmora/platform/export.hpp>

namespace Velmora::os {

// ThreadLimit: the cap in force, or 0 when none was set.
VELMORA_PLATFORM_EXPORT std::size_t ThreadLimit() noexcept;

}  // namespace Velmora::os
