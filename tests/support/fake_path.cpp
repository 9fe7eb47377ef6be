#include "support/fake_path.hpp"

#include <future>
#include <stdexcept>

#include <fl/filesystem/path.hpp>

namespace vpath_test {

using namespace Velmora::PathManagement;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;

void CallLog::Record(std::string call) const {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back(std::move(call));
}

namespace {
std::string Kinds(SearchScope scope) {
    std::string kinds = "(";
    for (const std::uint32_t kind : scope)
        kinds += std::to_string(kind);
    return kinds + ")";
}
std::string Policy(FilenameMatchingPolicy policy) {
    return "/" + std::to_string(static_cast<std::uint32_t>(policy));
}
bool InScope(SearchScope scope, const IPathEntry& entry) {
    return scope.Contains(static_cast<std::uint32_t>(entry.GetPathEntryType()));
}
bool IsMethod(const IPathEntry& entry) {
    return entry.GetPathEntryType() == PathEntryType::AtFolder;
}
// The entries placed on the path, in path order, for which `keep` holds.
PathEntryVector Select(const auto& placed, const auto& keep) {
    PathEntryVector out;
    for (const auto& p : placed) {
        if (keep(*p.entry))
            out.push_back(p.entry);
    }
    return out;
}
}  // namespace

std::vector<std::string> CallLog::Calls() const {
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

void CallLog::Clear() const {
    const std::lock_guard lock(m_mutex);
    m_calls.clear();
}

std::shared_ptr<FakeEntry> FakeEntry::Make(const ustring& iri, std::vector<ustring> files,
                                           PathEntryType kind) {
    auto entry = std::make_shared<FakeEntry>();
    entry->m_iri = AbsoluteIRI(iri);
    entry->m_kind = kind;
    entry->m_items = std::make_shared<PathItemVector>();
    for (const ustring& file : files) {
        const ustring ext = fl::filesystem::detail::extract_extension(file);
        entry->m_items->push_back(std::make_shared<const PathItem>(
            entry->m_iri, file.substr(0, file.size() - ext.size()), ext));
    }
    return entry;
}

void FakeEntry::SetSpecial(int slot, std::shared_ptr<const IPathEntry> entry) {
    m_special[slot - 1] = std::move(entry);
}

void FakeEntry::AddChild(std::shared_ptr<const FakeEntry> child) {
    m_children.push_back(std::move(child));
}

AbsoluteIRI FakeEntry::GetAbsoluteIRI() const {
    ++m_iriCalls;
    if (m_throwOnIRI)
        throw std::runtime_error("GetAbsoluteIRI failed on purpose");
    return m_iri;
}

CanonicalAbsoluteIRI FakeEntry::GetCanonicalAbsoluteIRI() const {
    return CanonicalAbsoluteIRI(m_iri, u"");
}

std::shared_ptr<const PathItem> FakeEntry::FindFile(const detail::SearchTarget& target,
                                                    FilenameMatchingPolicy policy) const {
    m_log.Record("FindFile" + Policy(policy));
    for (const ustring& ext : *target.extensions) {
        for (const auto& item : *m_items) {
            if (NamesMatch(item->GetName(), *target.baseName, policy) &&
                NamesMatch(item->GetExtension(), ext, policy)) {
                return item;
            }
        }
    }
    return nullptr;
}

bool FakeEntry::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    if (InScope(scope, *this) && callback(shared_from_this()))
        return true;
    for (const auto& child : m_children) {
        if (child->ForEachEntry(scope, callback))
            return true;
    }
    return false;
}

SharedNameMatcher FakeEntry::GetExtensionMatcher(FilenameMatchingPolicy policy) const {
    m_log.Record("GetExtensionMatcher" + Policy(policy));
    auto match = GetNameMatcher(policy);
    return std::make_shared<const NameMatcher>(
        [this, match](const ustring& extension, const ustring& itemExtension) {
            m_log.Record("match(" + Velmora::text::ToNative(extension) + "," +
                         Velmora::text::ToNative(itemExtension) + ")");
            return (*match)(extension, itemExtension);
        });
}

SharedPathEntryVector FakeEntry::GetSubEntries() const {
    return std::make_shared<const PathEntryVector>(m_children.begin(), m_children.end());
}

std::shared_ptr<FakePath> FakePath::Make(std::vector<std::shared_ptr<const FakeEntry>> mains) {
    auto path = std::make_shared<FakePath>();
    path->m_mains = std::move(mains);
    return path;
}

void FakePath::AddMain(std::shared_ptr<const FakeEntry> main) {
    m_mains.push_back(std::move(main));
}

void FakePath::SetCanonical(const ustring& canonicalIri, std::shared_ptr<const IPathEntry> entry) {
    m_canonical.emplace_back(AbsoluteIRI(canonicalIri).toString(), std::move(entry));
}

std::vector<FakePath::Placed> FakePath::Entries() const {
    std::vector<Placed> out;
    std::function<void(const std::shared_ptr<const FakeEntry>&, std::size_t,
                       std::shared_ptr<const IPathEntry>)>
        add = [&](const auto& e, std::size_t main, auto parent) {
            out.push_back({e, main, parent});
            const auto subs = e->GetSubEntries();
            for (const auto& sub : *subs)
                add(std::static_pointer_cast<const FakeEntry>(sub), main, e);
        };
    for (std::size_t i = 0; i < m_mains.size(); ++i)
        add(m_mains[i], i, nullptr);
    return out;
}

const FakePath::Placed* FakePath::Find(const IPathEntry& entry) const {
    thread_local std::vector<Placed> entries;
    entries = Entries();
    for (const auto& p : entries) {
        if (p.entry.get() == &entry)
            return &p;
    }
    return nullptr;
}

SharedPathEntryVector FakePath::GetMainEntries() const {
    ++m_mainEntriesCalls;
    if (m_failMainEntries > 0) {
        --m_failMainEntries;
        throw std::runtime_error("GetMainEntries failed on purpose");
    }
    return std::make_shared<const PathEntryVector>(m_mains.begin(), m_mains.end());
}

PathEntryVector FakePath::GetMethodEntries() const {
    return Select(Entries(), [](const IPathEntry& e) { return IsMethod(e); });
}

PathEntryVector FakePath::GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                 FilenameMatchingPolicy policy) const {
    m_log.Record("GetMethodEntriesByName" + Kinds(scope) + Policy(policy));
    return Select(Entries(), [&](const IPathEntry& e) {
        return IsMethod(e) && NamesMatch(e.GetName(), u"@" + name, policy);
    });
}

PathEntryVector FakePath::GetPartiallyMatchingEntries(SearchScope scope, const ustring& partialName,
                                                      FilenameMatchingPolicy policy) const {
    m_log.Record("GetPartiallyMatchingEntries" + Kinds(scope) + Policy(policy));
    return Select(Entries(), [&](const IPathEntry& e) {
        return InScope(scope, e) && NamesMatch(e.GetName(), partialName, policy);
    });
}

const FakePath::Placed& FakePath::FindOnPath(const IPathEntry& entry) const {
    const auto* p = Find(entry);
    if (!p)
        throw std::logic_error("asked about an entry that is not on the path");
    return *p;
}

std::shared_ptr<const IPathEntry> FakePath::GetMainEntryForEntry(const IPathEntry& entry) const {
    return m_mains[FindOnPath(entry).main];
}

std::shared_ptr<const IPathEntry> FakePath::GetParentEntryForEntry(const IPathEntry& entry) const {
    return FindOnPath(entry).parent;
}

std::shared_ptr<const IPathEntry> FakePath::GetPathEntryFromAbsoluteIRI(
    const AbsoluteIRI& location, FilenameMatchingPolicy policy) const {
    m_log.Record("GetPathEntryFromAbsoluteIRI" + Policy(policy));
    for (const auto& p : Entries()) {
        if (NamesMatch(p.entry->GetAbsoluteIRI().toString(), location.toString(), policy))
            return p.entry;
    }
    return nullptr;
}

std::shared_ptr<const IPathEntry> FakePath::GetPathEntryFromAbsoluteIRI(
    const CanonicalAbsoluteIRI& location) const {
    for (const auto& [iri, entry] : m_canonical) {
        if (iri == location.toString())
            return entry;
    }
    return nullptr;
}

OptionalFoundItem FakePath::FindFirstInScope(SearchScope scope, const detail::SearchTarget& target,
                                             FilenameMatchingPolicy policy) const {
    m_log.Record("FindFirstInScope" + Kinds(scope) + Policy(policy));
    for (const auto& p : Entries()) {
        if (auto item = InScope(scope, *p.entry) ? p.entry->FindFile(target, policy) : nullptr)
            return FoundItem(item, p.entry);
    }
    return boost::none;
}

std::vector<FoundItem> FakePath::FindAllInScope(SearchScope scope,
                                                const detail::SearchTarget& target,
                                                FilenameMatchingPolicy policy) const {
    m_log.Record("FindAllInScope" + Kinds(scope) + Policy(policy));
    std::vector<FoundItem> out;
    for (const auto& p : Entries()) {
        if (auto item = InScope(scope, *p.entry) ? p.entry->FindFile(target, policy) : nullptr)
            out.emplace_back(item, p.entry);
    }
    return out;
}

bool FakePath::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    m_log.Record("ForEachEntry" + Kinds(scope));
    return Walk(scope, callback);
}

bool FakePath::Walk(SearchScope scope, const EntryCallback& callback) const {
    for (const auto& main : m_mains) {
        if (main->ForEachEntry(scope, callback))
            return true;
    }
    return false;
}

bool FakePath::ConcurrentForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    m_log.Record("ConcurrentForEachEntry" + Kinds(scope));
    // Off the caller's thread, as a concurrent walk may call back; one thread keeps it simple.
    return std::async(std::launch::async, [&] { return Walk(scope, callback); }).get();
}

bool FakePath::FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                              const IPathEntry& second) const {
    const auto* a = Find(first);
    if (!a)
        return false;
    const std::size_t mainA = a->main;  // Find reuses its storage
    const auto* b = Find(second);
    return b == nullptr || mainA < b->main;
}

bool FakePath::IsEntryOnPath(const IPathEntry& entry) const {
    return Find(entry) != nullptr;
}

}  // namespace vpath_test
