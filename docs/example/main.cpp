// Embedding the search-path utilities: build a path, resolve a name, change the path through its
// manager while an observer listens, compare the two states, and resolve on many threads while
// another changes the path.
//
//   embedding_example FOLDER... EXTRA
//
// searches FOLDER... for "area", then adds EXTRA at the front and reports what changed; then two
// readers resolve "area" while the main thread takes EXTRA off the path and puts it back.

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <velmora/path_management.hpp>

namespace pm = Velmora::PathManagement;
using foundation::storage::vfs::AbsoluteIRI;

namespace {

std::string Native(const AbsoluteIRI& location) {
    return Velmora::text::ToNative(pm::GetStringFromIRI(location));
}

// The file that `name` resolves to on `path`. The target borrows `name`, which outlives it.
pm::OptionalFoundItem Find(const pm::IPath& path, const ustring& name) {
    const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
        name, pm::Constants::LanguageExtensions);
    return pm::FindFirstFileVisibleOnPath(path, target,
                                          pm::FilenameMatchingPolicy::PlatformDefault);
}

// The same as a native path, or "(not found)".
std::string Resolve(const pm::IPath& path, const ustring& name) {
    const auto found = Find(path, name);
    return found ? Native(found->GetPathItem()->GetAbsoluteIRI()) : "(not found)";
}

// 5. Threads: readers resolve "area" on whole states while this thread changes the path `changes`
//    times, taking the first folder off and putting it back. Every folder here holds "area", so
//    each answer must come from the first folder of the reader's own state, whatever the path
//    has become meanwhile. Returns how many answers did not.
int ReadWhileWriting(Velmora::SearchPath::MainSearchPathManager& manager, int changes) {
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            while (!done.load()) {
                const auto state = manager.GetState();  // snapshot and folder list of one moment
                const auto found = Find(*state->path, u"area");
                if (!found || found->GetPathEntry()->GetAbsoluteIRI() != state->folders->front())
                    ++wrong;
            }
        });
    }
    const auto all = *manager.GetPathFolderIRIs();
    for (int i = 0; i < changes; ++i) {
        foundation::core::except::Notification problems;
        if (i % 2 == 0)
            manager.ApplyPathAfterRemoving(std::vector(all.begin() + 1, all.end()), problems);
        else
            manager.ApplyPathAfterAdding(all, problems);
    }
    done.store(true);
    for (auto& reader : readers)
        reader.join();
    return wrong.load();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: embedding_example FOLDER... EXTRA\n");
        return 2;
    }
    // 1. Build a path: scan the folders (relative ones taken from the current folder). Folders
    //    that cannot be used are reported, not fatal.
    const Velmora::current_working_folder::CurrentWorkingFolder currentFolder;
    std::vector<AbsoluteIRI> folders;
    for (int i = 1; i < argc - 1; ++i)
        folders.push_back(currentFolder.resolve(Velmora::text::FromNative(argv[i])));
    Velmora::SearchPath::ScanReport report;
    const auto path = Velmora::SearchPath::MainSearchPath::Scan(folders, report);
    for (const auto& problem : report.Problems())
        std::fprintf(stderr, "warning: %s\n", problem.Describe().c_str());

    // 2. Resolve a name on it.
    std::printf("area -> %s\n", Resolve(*path, u"area").c_str());

    // 3. Change the path through a manager (kept in memory here; give Options::pathDefinition to
    //    save it), with an observer that hears of every change. It starts from the path cache of
    //    these folders and keeps it written, so that the next run lists only the folders that
    //    changed (with a path definition file, `options.pathCache.emplace()` is enough).
    Velmora::SearchPath::MainSearchPathManager::Options options;
    options.pathCache.emplace();
    options.pathCache->at = Velmora::SearchPath::PathCacheForFolders(folders);
    options.pathCache->warn = [](const std::string& warning) {
        std::fprintf(stderr, "warning: %s\n", warning.c_str());
    };
    Velmora::SearchPath::MainSearchPathManager manager(folders, std::move(options));
    const auto observer = manager.AddPathChangeObserver([](const pm::PathChange& change) {
        // 4. Compare the two states: the library's differentiator on the main entries...
        pm::PathEntryVectorDifferentiator diff;
        diff.Compare(*change.before->GetMainEntries(), *change.after->GetMainEntries(),
                     pm::PathEntryVectorDifferentiator::EntriesOnly);
        for (const auto& entry : *diff.GetAdded())
            std::printf("added %s\n", Native(entry->GetAbsoluteIRI()).c_str());
        for (const auto& entry : *diff.GetReordered())
            std::printf("moved %s\n", Native(entry->GetAbsoluteIRI()).c_str());
        // ... or the host's report, which also looks into special subfolders.
        const auto changes = Velmora::SearchPath::ComparePaths(*change.before, *change.after);
        std::printf("%zu added, %zu removed, special subfolders included\n", changes.added->size(),
                    changes.removed->size());
    });
    const std::vector<ustring> extra = {Velmora::text::FromNative(argv[argc - 1])};
    const auto messages =
        pm::AddFoldersToVorlanPath(extra, currentFolder, manager, pm::Position::Front);
    if (!messages.empty()) {
        // Nothing changed; each message says why ("... does not exist or is not a folder.").
        std::fprintf(stderr, "%s", messages.ToNativeText().c_str());
        return 1;
    }
    std::printf("area -> %s\n", Resolve(*manager.GetPath(), u"area").c_str());

    manager.RemovePathChangeObserver(observer);
    const auto before = manager.GetState()->generation;
    const int wrong = ReadWhileWriting(manager, 50);
    std::printf("2 readers beside a writer: %llu changes, %s\n",
                static_cast<unsigned long long>(manager.GetState()->generation - before),
                wrong == 0 ? "every answer from its reader's own state" : "WRONG ANSWERS");
    return wrong == 0 ? 0 : 1;
}
