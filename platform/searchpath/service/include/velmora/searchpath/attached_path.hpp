#pragma once
// AttachedPath: a program's link to the running path service of a saved path, so that it
// resolves names without reading the path itself, and hears of the path's changes.
//
// Attaching costs a connection, not a start: nothing of the path is read. Names resolve as
// `vpath which NAME` resolves them, through the service, and each answer is remembered in the
// program: asking a name again costs a look at the service's generation (a number in a page of
// memory the service shares read-only) and a hash lookup. The service bumps the generation before
// it answers from a changed path, so a remembered answer is never older than what the service
// would answer (served_change.hpp's frames, service_streams' page).
//
//   std::string reason;
//   auto attached = AttachedPath::Attach(
//       {.changed = [](const ServedChange& change) { ... change.refreshed ... }}, reason);
//   if (!attached) {
//       // no service runs (reason says why): open the manager yourself
//       auto manager = MainSearchPathManager::Open({...}, problems);
//   }
//   const auto answer = attached->Resolve("area");
//   if (!answer.answered)  { ... the service is gone: open the manager yourself ... }
//   else if (answer.file)  { ... answer.file->path: "/home/ada/tb/area.vl" ... }
//   else                   { ... area resolves to nothing ... }
//
// The callbacks run on a thread of the attached path's own: `changed` once per change of the
// path, in the order of the generations, none skipped or told twice; `ended` once, when the
// service ends or dies. From then on nothing is answered (answered is false) and the program
// reads the path itself. Resolve and Settle may be called from any thread, the callbacks
// included.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/served_change.hpp>
#include <velmora/searchpath/service_place.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT AttachedPath {
  public:
    struct Options {
        // The path definition file whose service to attach to (a native path); empty for the
        // default one (PathDefinitionFile::DefaultLocation()).
        std::string pathDefinition{};
        // Hears each change of the path.
        std::function<void(const ServedChange&)> changed{};
        // Hears that the service ended, died, or could not keep up with this program.
        std::function<void()> ended{};
        // The most to wait for the service to greet, when attaching and when asking.
        int greetMs = 500;
    };

    // Attach: the link to the service of the options' saved path; null when no service of it
    // runs, or it cannot be used (a socket folder that others may change, other settings), with
    // why in `reason`. Never reads the path.
    static std::unique_ptr<AttachedPath> Attach(Options options, std::string& reason);
    // Stops hearing of changes; no callback runs once it has returned.
    ~AttachedPath();
    AttachedPath(const AttachedPath&) = delete;
    AttachedPath& operator=(const AttachedPath&) = delete;

    struct Answer {
        // false: the service did not answer: it is gone (Lost()), or did not greet in time.
        bool answered = false;
        std::shared_ptr<const ServedFile> file;  // null: the name resolves to nothing
    };

    // Resolve: the file that `name` (native bytes) resolves to, remembered or asked for. An
    // answer asked for reflects every change made on disk before the call; a remembered one,
    // every change the service had taken in.
    Answer Resolve(std::string_view name);

    // Settle: has the service take in every change made on disk before the call, so that no
    // answer given after it is older. False when the service did not answer.
    bool Settle();

    // Generation: the generation of the state the service answers from.
    std::uint64_t Generation() const noexcept;
    // Lost: whether the service ended or could not be reached; for good.
    bool Lost() const noexcept;
    const ServicePlace& Place() const noexcept;

  private:
    struct Impl;
    explicit AttachedPath(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Velmora::SearchPath
