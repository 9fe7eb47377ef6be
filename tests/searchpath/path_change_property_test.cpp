// Any sequence of refreshes and rearrangements leaves a path that answers every question as one
// made whole from the same entries, whether it started from a scan or from a path cache.

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

#include "searchpath/path_fixture.hpp"

namespace {

using namespace Velmora::PathManagement;
using Velmora::PathManagement::detail::SearchTarget;
using namespace Velmora::SearchPath;
using Entries = std::vector<std::shared_ptr<const FolderEntry>>;

// Folders that may stand on the path: "f0/+pkg" is also a special folder of f0.
const std::vector<std::string> kFolders = {"f0", "f1", "f2", "f3", "f0/+pkg"};
const std::vector<std::string> kSubs = {"",          "+pkg",      "@Cls",     "private",
                                        "resources", "+pkg/@Cls", "+pkg/+in", "plain"};
const std::vector<std::string> kFiles = {"a.vl", "a.vlp", "A.vl", "b.vl", "Cls.vl", "c.vlx"};

// Everything the path answers about the names, folders and entries the test can make.
std::string Answers(const MainSearchPath& path, const std::vector<PathEntryPtr>& seen,
                    const vpath_test::TempTree& tree) {
    std::ostringstream out;
    out << path.GetEntryCount() << ' ' << path.GetFileCount() << " methods";
    for (const auto& method : path.GetMethodEntries())
        out << ' ' << method.get();
    const std::vector<std::vector<ustring>> extensionLists = {{u".vl"}, {u".vlx", u".vlp", u".vl"}};
    for (const auto policy : {FilenameMatchingPolicy::Exact, FilenameMatchingPolicy::IgnoreCase}) {
        for (const SearchScope scope :
             {SearchScope(vpath_test::kPrimary), SearchScope(vpath_test::kFull)}) {
            for (const ustring name :
                 {u"a", u"A", u"b", u"Cls", u"c", u"+pkg/b", u"@Cls/Cls", u"in/a"}) {
                for (const auto& extensions : extensionLists) {
                    const SearchTarget target(name, extensions);
                    const auto first = path.FindFirstInScope(scope, target, policy);
                    out << "\nfirst " << (first ? first->GetPathItem().get() : nullptr) << " all";
                    for (const auto& found : path.FindAllInScope(scope, target, policy))
                        out << ' ' << found.GetPathItem().get();
                }
            }
            for (const ustring name : {u"Cls", u"cls"}) {
                out << "\nmethods";
                for (const auto& entry : path.GetMethodEntriesByName(scope, name, policy))
                    out << ' ' << entry.get();
            }
            for (const ustring name : {u"pkg", u"+pkg/@Cls", u"private", u"f0/+pkg", u"in"}) {
                out << "\npartial";
                for (const auto& entry : path.GetPartiallyMatchingEntries(scope, name, policy))
                    out << ' ' << entry.get();
            }
        }
        for (const auto& folder : kFolders) {
            for (const auto& sub : kSubs)
                out << "\nat "
                    << path.GetPathEntryFromAbsoluteIRI(
                               tree.IRI(sub.empty() ? folder : folder + "/" + sub), policy)
                           .get();
        }
    }
    for (std::size_t i = 0; i < seen.size(); ++i) {
        const auto& entry = *seen[i];
        out << "\nentry " << path.IsEntryOnPath(entry) << path.GetMainEntryForEntry(entry).get()
            << path.GetParentEntryForEntry(entry).get()
            << path.GetPathEntryFromAbsoluteIRI(entry.GetCanonicalAbsoluteIRI()).get()
            << path.FirstEntryIsBeforeSecondOnPath(entry, *seen[(i * 7 + 3) % seen.size()]);
    }
    return out.str();
}

void Remember(const PathEntryPtr& entry, std::vector<PathEntryPtr>& seen) {
    seen.push_back(entry);
    for (const auto& sub : *entry->GetSubEntries())
        Remember(sub, seen);
}

void AddFile(const vpath_test::TempTree& tree, const std::string& folder) {
    const auto sub = *rc::gen::elementOf(kSubs);
    tree.File(folder + "/" + sub + (sub.empty() ? "" : "/") + *rc::gen::elementOf(kFiles));
}

// Some of `known`, in any order, repeats allowed. Drawn as positions: a shrink replays what an
// earlier run drew, and that run's entries are of another tree.
Entries Pick(const Entries& known) {
    Entries picked;
    for (const auto i : *rc::gen::container<std::vector<std::size_t>>(
             rc::gen::inRange<std::size_t>(0, kFolders.size())))
        picked.push_back(known[i]);
    return picked;
}

void Check(bool fromCache) {
    const vpath_test::TempTree tree;
    for (const auto& folder : kFolders) {
        tree.Folder(folder);
        for (int files = *rc::gen::inRange(0, 5); files > 0; --files)
            AddFile(tree, folder);
    }
    Entries known;
    ScanReport report;
    for (const auto& folder : kFolders)
        known.push_back(FolderScanner().ScanMainEntry(tree.IRI(folder), report));
    if (fromCache) {
        std::ofstream(tree.Path("path.cache"), std::ios::binary)
            << PathCacheFactory(known).Encode(tree.IRI("root"));
        known = LoadPathCache(tree.IRI("path.cache"), tree.IRI("root"));
        RC_ASSERT(known.size() == kFolders.size());
    }
    auto path = MainSearchPath::Create(Pick(known));
    std::vector<PathEntryPtr> seen;
    for (const auto& entry : known)
        Remember(entry, seen);
    for (int step = *rc::gen::inRange(1, 30); step > 0; --step) {
        const auto& mains = path->GetFolderEntries();
        if (!mains.empty() && *rc::gen::inRange(0, 3) != 0) {
            // A folder read anew after a change on disk, or gone.
            // A fixed range: a shrink may replay a value drawn for a longer path.
            const auto at = *rc::gen::inRange<std::size_t>(0, kFolders.size()) % mains.size();
            const auto location = mains[at]->GetAbsoluteIRI();
            const auto folder = *std::find_if(kFolders.begin(), kFolders.end(), [&](const auto& f) {
                return tree.IRI(f) == location;
            });
            std::shared_ptr<const FolderEntry> entry;
            if (*rc::gen::inRange(0, 8) != 0) {
                if (*rc::gen::arbitrary<bool>())
                    AddFile(tree, folder);
                else
                    std::filesystem::remove_all(
                        tree.Path(folder + "/" + *rc::gen::elementOf(kSubs)));
                tree.Folder(folder);
                entry = FolderScanner().ScanMainEntry(location, report);
                Remember(entry, seen);
            }
            path = MainSearchPath::Update(*path, {{at, entry}});
        } else {
            // Folders taken off, put back or moved: each folder's entry at most once.
            Entries next;
            for (const auto& entry : Pick(known)) {
                const auto same = [&](const auto& e) {
                    return e->GetLocation() == entry->GetLocation();
                };
                const auto on = std::find_if(mains.begin(), mains.end(), same);
                if (std::none_of(next.begin(), next.end(), same))
                    next.push_back(on != mains.end() ? *on : entry);
            }
            path = MainSearchPath::Rearrange(*path, next);
        }
        RC_ASSERT(Answers(*path, seen, tree) ==
                  Answers(*MainSearchPath::Create(path->GetFolderEntries()), seen, tree));
    }
}

RC_GTEST_PROP(PathChange, AnswersAsAPathMadeWholeFromAScan, ()) {
    Check(false);
}

RC_GTEST_PROP(PathChange, AnswersAsAPathMadeWholeFromAPathCache, ()) {
    Check(true);
}

}  // namespace
