// Attaching to the path service: resolve names through the running service of a saved path, with
// answers remembered until the path changes, and hear of its changes; or, when no service runs,
// open the manager as any program does.
//
//   attach_example PATHDEF FOLDER
//
// resolves "area" on the path saved in PATHDEF, makes FOLDER/area.vlx (FOLDER is on that path),
// resolves "area" again and tells the change it heard of, then removes the file it made.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <velmora/path_management.hpp>

namespace pm = Velmora::PathManagement;
using Velmora::SearchPath::AttachedPath;
using Velmora::SearchPath::ServedChange;

namespace {

// What the service tells of changes, heard on the attached path's thread.
class Changes {
  public:
    void Heard(const ServedChange& change) {
        const std::lock_guard lock(m_mutex);
        m_heard.push_back(change);
        m_changed.notify_all();
    }
    // The folders read anew by the changes after generation `from`, once all up to `to` are
    // heard.
    std::set<std::string> RefreshedBetween(std::uint64_t from, std::uint64_t to) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(10),
                           [&] { return !m_heard.empty() && m_heard.back().generation >= to; });
        std::set<std::string> folders;
        for (const auto& change : m_heard) {
            if (change.generation > from) {
                for (const auto& folder : change.refreshed)
                    folders.insert(Velmora::text::ToNative(pm::GetStringFromIRI(folder)));
            }
        }
        return folders;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<ServedChange> m_heard;
};

std::string Told(const AttachedPath::Answer& answer) {
    return answer.file ? answer.file->path : "(not found)";
}

// Without a service: the manager of the saved path, read from the disk (its cache when it has
// one), and the same lookup on its snapshot.
int WithoutService(const std::string& pathDefinition) {
    Velmora::SearchPath::MainSearchPathManager::Options options;
    options.pathDefinition.emplace(pathDefinition);
    options.pathCache.emplace();
    foundation::core::except::Notification problems;
    const auto manager = Velmora::SearchPath::MainSearchPathManager::Open(options, problems);
    if (!manager) {
        std::fprintf(stderr, "%s", problems.ToNativeText().c_str());
        return 1;
    }
    const ustring name = u"area";
    const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
        name, pm::Constants::LanguageExtensions);
    const auto found = pm::FindFirstFileVisibleOnPath(*manager->GetState()->path, target,
                                                      pm::FilenameMatchingPolicy::PlatformDefault);
    std::printf("area -> %s\n",
                found ? Velmora::text::ToNative(
                            pm::GetStringFromIRI(found->GetPathItem()->GetAbsoluteIRI()))
                            .c_str()
                      : "(not found)");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: attach_example PATHDEF FOLDER\n");
        return 2;
    }
    const std::string pathDefinition = argv[1];
    const std::filesystem::path folder = argv[2];
    Changes changes;
    std::string reason;
    const auto attached =
        AttachedPath::Attach({.pathDefinition = pathDefinition,
                              .changed = [&](const ServedChange& change) { changes.Heard(change); },
                              .ended = [] { std::fprintf(stderr, "the path service ended\n"); }},
                             reason);
    if (!attached) {
        std::printf("no path service (%s): reading the path\n", reason.c_str());
        return WithoutService(pathDefinition);
    }
    std::printf("attached\n");
    std::printf("area -> %s\n", Told(attached->Resolve("area")).c_str());
    // Asked again: answered from memory, while the service's generation stays the same.
    std::printf("area -> %s\n", Told(attached->Resolve("area")).c_str());

    const auto before = attached->Generation();
    const auto made = folder / "area.vlx";
    std::ofstream(made) << "";
    std::printf("made %s\n", made.c_str());
    // Have the service take the new file in (its watcher would within milliseconds anyway): it
    // moves its generation before it answers from the changed path, so what was remembered of
    // "area" is not used again.
    if (!attached->Settle()) {
        std::fprintf(stderr, "the service is gone\n");
        return 1;
    }
    const auto answer = attached->Resolve("area");
    for (const auto& refreshed : changes.RefreshedBetween(before, attached->Generation()))
        std::printf("heard: refreshed %s\n", refreshed.c_str());
    std::filesystem::remove(made);
    std::printf("area -> %s\n", Told(answer).c_str());
    return 0;
}
