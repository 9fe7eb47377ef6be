// vpath watch: what changes on the search path while it runs, as folders change on disk or
// another process changes the saved path.
//
// When the service of the saved path runs, watch hears the changes from it instead of watching
// the folders itself, so that any number of watches share the service's watches. Should the
// service end while watched, watch says so and exits: starting watches of its own then could not
// tell which changes happened in between, and would miss or repeat them.

#include <charconv>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/attached_path.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/path_poller.hpp>
#include <velmora/searchpath/path_watcher.hpp>
#include <velmora/searchpath/service_client.hpp>

#include "commands.hpp"
#include "context/given_path.hpp"
#include "context/path_cache_use.hpp"
#include "context/service_use.hpp"
#include "output/change_report.hpp"

namespace vpath_cli {
namespace {

// A day: a longer pause is more likely a slip than a wish, and would overflow the clock's ticks
// long before the 1.8e308 that a double allows.
constexpr double kMaxPollSeconds = 86400;

struct WatchOptions {
    std::optional<std::string> poll;   // seconds between readings; none watches through inotify
    std::optional<std::string> count;  // stop after this many changes
    bool json = false;
};

double ParsePoll(const std::string& text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(seconds) ||
        seconds <= 0 || seconds > kMaxPollSeconds) {
        throw std::runtime_error(
            fmt::format("--poll takes a number of seconds above 0 and at most {}, not \"{}\"",
                        kMaxPollSeconds, text));
    }
    return seconds;
}

std::uint64_t ParseCount(const std::string& text) {
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size() || count < 1) {
        throw std::runtime_error(
            fmt::format("--count takes a whole number of changes, 1 or more, not \"{}\"", text));
    }
    return count;
}

// The moment of a change as printed: UTC to the millisecond, "2026-11-23T10:55:06.123Z".
std::string Now() {
    const auto now =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", seconds, (now - seconds).count());
}

// Counts the changes printed and tells the main thread when it has printed enough.
class Printer {
  public:
    Printer(bool json, std::optional<std::uint64_t> limit) : m_json(json), m_limit(limit) {}

    void operator()(const Velmora::PathManagement::PathChange& change) {
        Print(Velmora::SearchPath::DescribeChange(change));
    }
    void Print(const Velmora::SearchPath::ServedChange& change) {
        if (change.empty())
            return;
        // Held while printing: a change that comes after the last one asked for is not printed.
        std::lock_guard lock(m_mutex);
        if (Done())
            return;
        PrintChange(change, m_json, Now());
        std::fflush(stdout);
        ++m_printed;
        m_progress.notify_all();
    }
    // End: the changes stop coming (the path service ended).
    void End() {
        std::lock_guard lock(m_mutex);
        m_ended = true;
        m_progress.notify_all();
    }
    // WaitForLimit: returns when the limit is reached, or when `interval` has passed.
    bool WaitForLimit(std::chrono::duration<double> interval) {
        std::unique_lock lock(m_mutex);
        return m_progress.wait_for(lock, interval, [&] { return Done() || m_ended; });
    }
    bool Done() const { return m_limit && m_printed >= *m_limit; }
    bool Ended() {
        std::lock_guard lock(m_mutex);
        return m_ended && !Done();
    }

  private:
    bool m_json;
    std::optional<std::uint64_t> m_limit;
    std::mutex m_mutex;
    std::condition_variable m_progress;
    std::uint64_t m_printed = 0;
    bool m_ended = false;
};

// The start's warnings of the path's folders (missing, unreadable), as the service has them: its
// run of `vpath path` prints them first.
void PrintServiceWarnings(const Velmora::SearchPath::ServicePlace& place) {
    Velmora::SearchPath::ServiceRequest request;
    request.pathDefinition = place.pathDefinition;
    if (Velmora::os::System().CurrentFolder(request.folder) != 0)
        return;
    request.arguments = {"path"};
    request.settings = Velmora::SearchPath::AnswerSettings();
    const auto reply = Velmora::SearchPath::AskPathService(place, request, {});
    if (!reply)
        return;
    constexpr std::string_view kWarning = "vpath: warning: ";
    std::string_view err = reply->err;
    while (!err.empty()) {
        const auto end = err.find('\n');
        const auto line = err.substr(0, end == std::string_view::npos ? err.size() : end + 1);
        if (line.starts_with(kWarning))
            std::fwrite(line.data(), 1, line.size(), stderr);
        err.remove_prefix(line.size());
    }
}

// Watches through the service of the saved path; none when none runs, and watch watches by
// itself.
std::optional<int> WatchThroughService(const PathOptions& pathOptions, Printer& printer) {
    const auto place = ServicePlaceOf(pathOptions);
    if (!place)
        return std::nullopt;
    std::string reason;
    const auto attached = Velmora::SearchPath::AttachedPath::Attach(
        {.pathDefinition = place->pathDefinition,
         .changed = [&](const Velmora::SearchPath::ServedChange& change) { printer.Print(change); },
         .ended = [&] { printer.End(); }},
        reason);
    if (!attached) {
        if (ServiceStartsWhenMissing() && !Velmora::SearchPath::PathServiceRuns(*place)) {
            try {
                SpawnService(*place, std::nullopt);
            } catch (const std::exception& e) {
                Warn(e.what());
            }
        }
        return std::nullopt;
    }
    PrintServiceWarnings(*place);
    while (!printer.WaitForLimit(std::chrono::hours(24))) {
    }
    if (printer.Ended()) {
        Fail(
            "the path service ended while watching: changes after the last one printed were not "
            "followed; run 'vpath watch' again");
        return kExitTrouble;
    }
    return kExitOk;
}

int RunWatch(const WatchOptions& options, const PathOptions& pathOptions) {
    // A plain value rather than an optional: GCC cannot see that it is set wherever it is read.
    const bool polling = options.poll.has_value();
    const double pollSeconds = polling ? ParsePoll(*options.poll) : 0.0;
    const std::optional<std::uint64_t> limit =
        options.count ? std::optional(ParseCount(*options.count)) : std::nullopt;
    Printer printer(options.json, limit);
    if (!polling && ServiceMayServe(pathOptions)) {
        if (const auto status = WatchThroughService(pathOptions, printer))
            return *status;
    }
    // A path given on the command line is watched as it stands; it has no file to follow.
    const auto given = GivenFolders(pathOptions);
    // The watches are set up while the path is read, from what its cache knows.
    std::optional<Velmora::SearchPath::EarlyWatches> early;
    const auto watchEarly = [&](const std::string& pathDefinition, const auto& known) {
        if (!polling)
            early.emplace(pathDefinition, known);
    };
    const auto manager = given ? std::make_shared<Velmora::SearchPath::MainSearchPathManager>(
                                     *given, Velmora::SearchPath::MainSearchPathManager::Options{})
                               : OpenManager(pathOptions, Purpose::Watch, watchEarly);
    if (!manager)
        return kExitTrouble;
    PrintWarnings(*manager->GetWarnings());
    manager->AddPathChangeObserver([&](const auto& change) { printer(change); });

    if (!polling) {
        // While the early watches are finished, this thread readies the path for the first
        // change, which would otherwise wait for that on the watcher's thread.
        manager->GetSnapshot()->PrepareForChanges();
        if (!early)
            early.emplace(manager->GetPathDefinitionPath(), Velmora::SearchPath::FolderEntryList{});
        Velmora::SearchPath::PathWatcher watcher(
            *manager,
            {.warn = [](const std::string& warning) { Warn(warning); },
             .failed =
                 [](std::exception_ptr failure) {
                     try {
                         std::rethrow_exception(failure);
                     } catch (const std::exception& e) {
                         Warn(e.what());
                     }
                 }},
            std::move(*early));
        while (!printer.WaitForLimit(std::chrono::hours(24))) {
        }
        return kExitOk;
    }
    // Polling reads again each folder whose stamp moved, and each whose stamp was too recent to
    // trust at the last reading.
    const std::chrono::duration<double> pause(pollSeconds);
    Velmora::SearchPath::PathPoller poller(*manager, {});
    while (!printer.WaitForLimit(pause)) {
        foundation::core::except::Notification problems;
        poller.Poll(problems);
        PrintMessages(problems);
    }
    return kExitOk;
}

}  // namespace

Command RegisterWatch(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<WatchOptions>();
    auto* watch = app.add_subcommand(
        "watch",
        "Print what changes on the search path as its folders change on disk, one timestamped "
        "line per change");
    watch
        ->add_option("--poll", options->poll,
                     "Read the folders again every SECONDS instead of being told of changes "
                     "(for file systems without inotify)")
        ->type_name("SECONDS");
    // The name of --poll in earlier versions.
    watch->add_option("--interval", options->poll)->group("");
    watch->add_option("--count", options->count, "Stop after this many changes")->type_name("N");
    watch->add_flag("--json", options->json, "One JSON object per change, for scripts");
    return {watch, [options, &pathOptions] { return RunWatch(*options, pathOptions); }};
}

}  // namespace vpath_cli
