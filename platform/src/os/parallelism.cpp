#include <velmora/os/parallelism.hpp>

#include <cstdlib>
#include <memory>
#include <string>

#include <tbb/global_control.h>

namespace Velmora::os {
namespace {

std::size_t ReadLimit() {
    const char* value = std::getenv("VPATH_THREADS");
    if (value == nullptr || *value == '\0')
        return 0;
    try {
        const long long n = std::stoll(value);
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    } catch (const std::exception&) {
        return 0;  // not a number: no cap, rather than refusing to start
    }
}

// The cap lives as long as the host is loaded, so every parallel algorithm sees it.
struct Limit {
    std::size_t threads = ReadLimit();
    std::unique_ptr<tbb::global_control> control =
        threads == 0 ? nullptr
                     : std::make_unique<tbb::global_control>(
                           tbb::global_control::max_allowed_parallelism, threads);
};

const Limit g_limit;

}  // namespace

std::size_t ThreadLimit() noexcept {
    return g_limit.threads;
}

}  // namespace Velmora::os
