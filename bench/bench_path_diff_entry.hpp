#pragma once
// BenchEntry: the least IPathEntry that path change analysis needs, a folder's location and no
// special subfolders, so that the benchmark times the comparison and not an entry's machinery.

#include <memory>
#include <string>

#include <velmora/pathinterfaces/ipath_entry.hpp>

namespace vpath_bench {

using BenchEntryPtr = std::shared_ptr<const Velmora::PathManagement::IPathEntry>;

class BenchEntry final : public Velmora::PathManagement::IPathEntry {
  public:
    explicit BenchEntry(foundation::storage::vfs::AbsoluteIRI iri) : m_iri(std::move(iri)) {}

    foundation::storage::vfs::AbsoluteIRI GetAbsoluteIRI() const override { return m_iri; }
    BenchEntryPtr GetPrivateSubEntry() const override { return nullptr; }
    BenchEntryPtr GetSpecialSubEntry2() const override { return nullptr; }
    BenchEntryPtr GetSpecialSubEntry3() const override { return nullptr; }
    BenchEntryPtr GetSpecialSubEntry4() const override { return nullptr; }
    BenchEntryPtr GetSpecialSubEntry5() const override { return nullptr; }

    // Not used by the comparison.
    Velmora::PathManagement::PathEntryType GetPathEntryType() const override { return {}; }
    std::shared_ptr<const Velmora::PathManagement::PathItemVector> GetItems() const override {
        return nullptr;
    }
    foundation::storage::vfs::CanonicalAbsoluteIRI GetCanonicalAbsoluteIRI() const override {
        return foundation::storage::vfs::CanonicalAbsoluteIRI(m_iri, u"");
    }
    std::shared_ptr<const Velmora::PathManagement::PathItem> FindFile(
        const Velmora::PathManagement::detail::SearchTarget&,
        Velmora::PathManagement::FilenameMatchingPolicy) const override {
        return nullptr;
    }
    bool ForEachEntry(Velmora::PathManagement::SearchScope,
                      const Velmora::PathManagement::EntryCallback&) const override {
        return false;
    }
    Velmora::PathManagement::SharedNameMatcher GetExtensionMatcher(
        Velmora::PathManagement::FilenameMatchingPolicy) const override {
        return nullptr;
    }
    ustring GetName() const override { return m_iri.getName(); }
    Velmora::PathManagement::SharedPathEntryVector GetSubEntries() const override {
        return nullptr;
    }

  private:
    foundation::storage::vfs::AbsoluteIRI m_iri;
};

// An entry for the ASCII IRI text `iri`, parsed anew: even a refreshed entry for a folder gets
// its own IRI object, as a rescan gives it.
inline BenchEntryPtr MakeBenchEntry(const std::string& iri) {
    return std::make_shared<const BenchEntry>(
        foundation::storage::vfs::AbsoluteIRI(ustring(iri.begin(), iri.end())));
}

}  // namespace vpath_bench
