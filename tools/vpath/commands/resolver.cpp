#include "resolver.hpp"

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>

namespace vpath_cli {

using namespace Velmora::PathManagement;

namespace {

const std::uint32_t kPrimary[] = {0};

}  // namespace

// The quick answer matches names exactly, as every lookup of the command does.
static_assert(kPolicy != FilenameMatchingPolicy::IgnoreCase);

Resolver::Resolver(const IPath& path, std::optional<foundation::storage::vfs::AbsoluteIRI> from)
    : m_path(path),
      m_mainPath(dynamic_cast<const Velmora::SearchPath::MainSearchPath*>(&path)),
      m_from(std::move(from)) {}

bool Resolver::CanTellQuickly(const detail::SearchTarget& target) const {
    // A name with folders is a partial pathname, and a class folder's file can come first: both
    // take the whole lookup.
    return m_mainPath != nullptr && !m_from &&
           target.baseName->find_first_of(Constants::PathnameSeparatorStr) == ustring::npos &&
           m_path
               .GetMethodEntriesByName(SearchScope(kPrimary), *target.baseName,
                                       FilenameMatchingPolicy::Exact)
               .empty();
}

std::optional<Velmora::SearchPath::MainSearchPath::Holder> Resolver::QuickInUse(
    const detail::SearchTarget& target) const {
    return m_mainPath->FindFirstHolderInScope(SearchScope(kPrimary), target);
}

OptionalFoundItem Resolver::InUse(const detail::SearchTarget& target) const {
    return m_from ? FindFirstFileVisibleFromFolder(m_path, *m_from, target, kPolicy)
                  : FindFirstFileVisibleOnPath(m_path, target, kPolicy);
}

std::vector<FoundItem> Resolver::All(const detail::SearchTarget& target) const {
    std::vector<FoundItem> all;
    const auto inUse = InUse(target);
    if (!inUse)
        return all;
    all.push_back(*inUse);
    for (const auto& found : Candidates(target)) {
        // Each folder answers with its first extension; the others it holds are shadowed too, in
        // the order of preference.
        for (const ustring& extension : *target.extensions) {
            const std::vector<ustring> one{extension};
            const detail::SearchTarget only(*target.baseName, one);
            auto item = found.GetPathEntry()->FindFile(only, kPolicy);
            if (item && !SameFile(*item, *inUse->GetPathItem()))
                all.emplace_back(std::move(item), found.GetPathEntry());
        }
    }
    return all;
}

bool SameFile(const PathItem& a, const PathItem& b) {
    return a.GetLocation() == b.GetLocation() && a.GetName() == b.GetName() &&
           a.GetExtension() == b.GetExtension();
}

std::vector<FoundItem> Resolver::Candidates(const detail::SearchTarget& target) const {
    const bool qualified =
        target.baseName->find_first_of(Constants::PathnameSeparatorStr) != ustring::npos;
    static const std::uint32_t kFull[] = {0, 1, 2, 3, 4};
    const SearchScope scope = qualified ? SearchScope(kFull) : SearchScope(kPrimary);
    auto inFolders = m_path.FindAllInScope(scope, target, kPolicy);
    if (qualified)
        return inFolders;
    // Class folders of the name, merged in by path order; on a tie the plain file comes first.
    std::vector<FoundItem> inClasses;
    for (const auto& entry : m_path.GetMethodEntriesByName(SearchScope(kPrimary), *target.baseName,
                                                           FilenameMatchingPolicy::Exact)) {
        if (auto item = entry->FindFile(target, kPolicy))
            inClasses.emplace_back(item, entry);
    }
    std::vector<FoundItem> merged;
    merged.reserve(inFolders.size() + inClasses.size());
    auto f = inFolders.begin();
    auto c = inClasses.begin();
    while (f != inFolders.end() || c != inClasses.end()) {
        const bool classFirst =
            f == inFolders.end() ||
            (c != inClasses.end() &&
             m_path.FirstEntryIsBeforeSecondOnPath(*c->GetPathEntry(), *f->GetPathEntry()));
        merged.push_back(classFirst ? *c++ : *f++);
    }
    return merged;
}

}  // namespace vpath_cli
