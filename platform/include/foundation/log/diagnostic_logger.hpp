#pragma once
// Diagnostic logger channels: named streams of diagnostics for developers, off unless asked for.
//
// A channel is created by constructing a DiagnosticLogger with its name and lives as long as that
// object. What is written is shown on standard error when the environment variable VPATH_LOG names
// a level (trace, debug, info, warn, error); without it, channels are silent.
//
//   foundation::log::DiagnosticLogger scanLog("platform::searchpath::scan");
//   if (scanLog.IsEnabled(Level::Warn)) scanLog.Write(Level::Warn, "cannot read /x: ...");

#include <memory>
#include <string>
#include <string_view>

#include <velmora/platform/export.hpp>

namespace foundation::log {

enum class Level { Trace, Debug, Info, Warn, Error, Off };

class VELMORA_PLATFORM_EXPORT DiagnosticLogger {
  public:
    // Creates the channel `name`. REQUIRES: no other live logger has the same name.
    explicit DiagnosticLogger(std::string name);
    ~DiagnosticLogger();
    DiagnosticLogger(const DiagnosticLogger&) = delete;
    DiagnosticLogger& operator=(const DiagnosticLogger&) = delete;

    const std::string& Name() const noexcept { return m_name; }
    bool IsEnabled(Level level) const noexcept;
    void Write(Level level, std::string_view text) const;

  private:
    struct Impl;
    std::string m_name;
    std::unique_ptr<Impl> m_impl;
};

// ChannelExists: whether a channel of that name is alive in the process.
VELMORA_PLATFORM_EXPORT bool ChannelExists(std::string_view name);

// SetThreshold: shows every channel's diagnostics from `level` up (overrides VPATH_LOG).
VELMORA_PLATFORM_EXPORT void SetThreshold(Level level);

}  // namespace foundation::log
