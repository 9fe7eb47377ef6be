#pragma once
// Test doubles of the path interfaces, for the library's contracts: entries and paths built by
// hand, with every answer under the test's control and every call counted.
//
//   auto a = FakeEntry::Make(u"file:///a", {u"f.vl"});
//   auto b = FakeEntry::Make(u"file:///b");
//   auto path = FakePath::Make({a, b});
//   path->FindFirstInScope(...)  // the first of a, b whose files hold the target

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/search_target.hpp>

namespace vpath_test {

namespace pm = Velmora::PathManagement;
using Velmora::PathManagement::FilenameMatchingPolicy;
using Velmora::PathManagement::IPathEntry;
using Velmora::PathManagement::PathEntryType;

// CallLog: what a fake was asked, in order, from any thread: the operation, the kinds of its scope
// and its policy, as "FindFirstInScope(01234)/1", "GetPathEntryFromAbsoluteIRI/2" or
// "ForEachEntry(0)".
class CallLog {
  public:
    void Record(std::string call) const;
    std::vector<std::string> Calls() const;
    void Clear() const;

  private:
    mutable std::mutex m_mutex;
    mutable std::vector<std::string> m_calls;
};

// FakeEntry: an entry whose location, kind, files and special sub-entries the test sets. It logs
// FindFile and GetExtensionMatcher with their policies, and each use of that matcher as
// "match(<extension of the list>,<extension of the item>)".
class FakeEntry final : public IPathEntry, public std::enable_shared_from_this<FakeEntry> {
  public:
    // An entry at `iri` holding files named `files` ("area.vl", "Readme").
    static std::shared_ptr<FakeEntry> Make(const ustring& iri, std::vector<ustring> files = {},
                                           PathEntryType kind = PathEntryType{0});

    // Setters, for building before the entry is shared.
    void SetSpecial(int slot, std::shared_ptr<const IPathEntry> entry);  // slot 1..5
    void AddChild(std::shared_ptr<const FakeEntry> child);               // walked by ForEachEntry
    // Makes GetAbsoluteIRI throw std::runtime_error.
    void ThrowOnIRI(bool on) { m_throwOnIRI = on; }
    // Holds the very file objects of `other` (the same files reached through another entry).
    void ShareItemsOf(const FakeEntry& other) { m_items = other.m_items; }
    // Calls of GetAbsoluteIRI so far (from any thread).
    int IRICalls() const { return m_iriCalls.load(); }
    const CallLog& Log() const { return m_log; }

    PathEntryType GetPathEntryType() const override { return m_kind; }
    std::shared_ptr<const pm::PathItemVector> GetItems() const override { return m_items; }
    foundation::storage::vfs::AbsoluteIRI GetAbsoluteIRI() const override;
    foundation::storage::vfs::CanonicalAbsoluteIRI GetCanonicalAbsoluteIRI() const override;
    std::shared_ptr<const IPathEntry> GetPrivateSubEntry() const override { return m_special[0]; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry2() const override { return m_special[1]; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry3() const override { return m_special[2]; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry4() const override { return m_special[3]; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry5() const override { return m_special[4]; }
    std::shared_ptr<const pm::PathItem> FindFile(const pm::detail::SearchTarget& target,
                                                 FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(pm::SearchScope scope, const pm::EntryCallback& callback) const override;
    pm::SharedNameMatcher GetExtensionMatcher(FilenameMatchingPolicy policy) const override;
    ustring GetName() const override { return m_iri.getName(); }
    pm::SharedPathEntryVector GetSubEntries() const override;

  private:
    foundation::storage::vfs::AbsoluteIRI m_iri;
    PathEntryType m_kind{};
    std::shared_ptr<pm::PathItemVector> m_items;
    std::shared_ptr<const IPathEntry> m_special[5];
    std::vector<std::shared_ptr<const FakeEntry>> m_children;
    bool m_throwOnIRI = false;
    mutable std::atomic<int> m_iriCalls{0};
    CallLog m_log;
};

// FakePath: a path over main entries given in order, each with its children (its method and
// other sub-entries) found through FakeEntry::AddChild. Sub-entries sort equal to their main
// entry. Main entries may be added after construction (to show what a frozen cache misses). It
// logs every operation that takes a policy, and the walks; ConcurrentForEachEntry calls back on
// another thread. GetMainEntryForEntry and GetParentEntryForEntry throw std::logic_error for an
// entry that is not on the path: callers must ask IsEntryOnPath first.
class FakePath final : public pm::IPath {
  public:
    static std::shared_ptr<FakePath> Make(std::vector<std::shared_ptr<const FakeEntry>> mains);

    void AddMain(std::shared_ptr<const FakeEntry> main);
    // Makes the next `count` calls of GetMainEntries throw std::runtime_error.
    void FailNextMainEntries(int count) { m_failMainEntries = count; }
    int MainEntriesCalls() const { return m_mainEntriesCalls.load(); }
    // Entries found by canonical location: a map the test fills.
    void SetCanonical(const ustring& canonicalIri, std::shared_ptr<const IPathEntry> entry);
    const CallLog& Log() const { return m_log; }

    pm::SharedPathEntryVector GetMainEntries() const override;
    pm::PathEntryVector GetMethodEntries() const override;
    pm::PathEntryVector GetMethodEntriesByName(pm::SearchScope scope, const ustring& name,
                                               FilenameMatchingPolicy policy) const override;
    pm::PathEntryVector GetPartiallyMatchingEntries(pm::SearchScope scope,
                                                    const ustring& partialName,
                                                    FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const IPathEntry> GetMainEntryForEntry(const IPathEntry& entry) const override;
    std::shared_ptr<const IPathEntry> GetParentEntryForEntry(
        const IPathEntry& entry) const override;
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::AbsoluteIRI& location,
        FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& location) const override;
    pm::OptionalFoundItem FindFirstInScope(pm::SearchScope scope,
                                           const pm::detail::SearchTarget& target,
                                           FilenameMatchingPolicy policy) const override;
    std::vector<pm::FoundItem> FindAllInScope(pm::SearchScope scope,
                                              const pm::detail::SearchTarget& target,
                                              FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(pm::SearchScope scope, const pm::EntryCallback& callback) const override;
    bool ConcurrentForEachEntry(pm::SearchScope scope,
                                const pm::EntryCallback& callback) const override;
    bool FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                        const IPathEntry& second) const override;
    bool IsEntryOnPath(const IPathEntry& entry) const override;

  private:
    struct Placed {
        std::shared_ptr<const IPathEntry> entry;
        std::size_t main;
        std::shared_ptr<const IPathEntry> parent;
    };
    // Every entry in path order: each main entry, then its children depth first.
    std::vector<Placed> Entries() const;
    const Placed* Find(const IPathEntry& entry) const;
    const Placed& FindOnPath(const IPathEntry& entry) const;
    bool Walk(pm::SearchScope scope, const pm::EntryCallback& callback) const;

    std::vector<std::shared_ptr<const FakeEntry>> m_mains;
    std::vector<std::pair<ustring, std::shared_ptr<const IPathEntry>>> m_canonical;
    mutable std::atomic<int> m_failMainEntries{0};
    mutable std::atomic<int> m_mainEntriesCalls{0};
    CallLog m_log;
};

}  // namespace vpath_test
