#include <foundation/log/diagnostic_logger.hpp>

#include <atomic>
#include <cstdlib>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace foundation::log {
namespace {

spdlog::level::level_enum ToSpdlog(Level level) {
    switch (level) {
        case Level::Trace:
            return spdlog::level::trace;
        case Level::Debug:
            return spdlog::level::debug;
        case Level::Info:
            return spdlog::level::info;
        case Level::Warn:
            return spdlog::level::warn;
        case Level::Error:
            return spdlog::level::err;
        case Level::Off:
            break;
    }
    return spdlog::level::off;
}

// Set by SetThreshold; Off+1 means "not set, follow VPATH_LOG".
std::atomic<int> g_threshold{static_cast<int>(spdlog::level::off) + 1};

spdlog::level::level_enum InitialThreshold() {
    const int chosen = g_threshold.load(std::memory_order_relaxed);
    if (chosen <= static_cast<int>(spdlog::level::off)) {
        return static_cast<spdlog::level::level_enum>(chosen);
    }
    const char* value = std::getenv("VPATH_LOG");
    if (value == nullptr || *value == '\0')
        return spdlog::level::off;
    return spdlog::level::from_str(value);
}

// All channels share one sink, so lines from several channels never interleave mid-line.
std::shared_ptr<spdlog::sinks::sink> SharedSink() {
    static const auto sink = [] {
        auto s = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        s->set_pattern("[%n] %l: %v");
        return s;
    }();
    return sink;
}

}  // namespace

struct DiagnosticLogger::Impl {
    std::shared_ptr<spdlog::logger> logger;
};

DiagnosticLogger::DiagnosticLogger(std::string name)
    : m_name(std::move(name)), m_impl(std::make_unique<Impl>()) {
    m_impl->logger = std::make_shared<spdlog::logger>(m_name, SharedSink());
    m_impl->logger->set_level(InitialThreshold());
    spdlog::register_logger(m_impl->logger);
}

DiagnosticLogger::~DiagnosticLogger() {
    spdlog::drop(m_name);
}

bool DiagnosticLogger::IsEnabled(Level level) const noexcept {
    return m_impl->logger->should_log(ToSpdlog(level));
}

void DiagnosticLogger::Write(Level level, std::string_view text) const {
    m_impl->logger->log(ToSpdlog(level), text);
}

bool ChannelExists(std::string_view name) {
    return spdlog::get(std::string(name)) != nullptr;
}

void SetThreshold(Level level) {
    g_threshold.store(static_cast<int>(ToSpdlog(level)), std::memory_order_relaxed);
    spdlog::set_level(ToSpdlog(level));
}

}  // namespace foundation::log
