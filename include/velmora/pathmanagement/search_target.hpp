#pragma once
// Search targets and entry types: what a file lookup looks for, and the kind of a folder by its
// base name.
//
//   const std::vector<ustring> exts = {u".vlx", u".vlp", u".vl"};
//   const ustring area = u"area", areaVl = u"area.vl";
//   auto t = CreateSearchTargetWithExtensionInFilenamePreferred(area, exts);
//   // t borrows: *t.baseName == u"area", *t.extensions == exts
//   auto u = CreateSearchTargetWithExtensionInFilenamePreferred(areaVl, exts);
//   // u owns: *u.baseName == u"area", *u.extensions == {u".vl"}
//   CreateSearchTargetWithExtensionInFilenamePreferred(u"area", exts);  // does not compile: the
//                                                 // temporary name would die before the target
//
//   GetPathEntryTypeFromBaseName(u"+shapes")  => PathEntryType::PlusFolder
//   GetPathEntryTypeFromBaseName(u"Private")  => PathEntryType::Ordinary

#include <cstdint>
#include <utility>
#include <vector>

#include <boost/optional.hpp>

#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

// PathEntryType: the kind of a folder by its base name. The numbers are part of the contract:
// callers compare them, and search scopes list them.
enum class PathEntryType : std::uint32_t {
    Ordinary = 0,       // any other name, the empty name included
    PlusFolder = 1,     // first character "+": a package folder
    AtFolder = 2,       // first character "@": a class folder
    PrivateFolder = 3,  // exactly Constants::PrivateFolderStr
    // 4 is kept free on purpose and is never produced.
    ResourcesFolder = 5,  // exactly Constants::ResourcesFolderStr
};

// GetPathEntryTypeFromBaseName: the kind of the folder named `baseName`. Case-sensitive whatever
// the matching policy: "Private" is Ordinary. Decides on the first code unit before comparing whole
// names; allocates nothing and never throws.
//
//   u"+"        => PlusFolder      u"a+b"      => Ordinary
//   u"@Polygon" => AtFolder        u"privateX" => Ordinary
//   u"private"  => PrivateFolder   u""         => Ordinary
//   u"resources"=> ResourcesFolder
VELMORA_PATHMANAGEMENT_EXPORT PathEntryType
GetPathEntryTypeFromBaseName(const ustring& baseName) noexcept;

namespace detail {

// SearchTarget: the base name of the wanted file and the extensions under which it may exist, in
// order of preference ("" stands for no extension). A target either borrows the caller's name and
// list, which must then outlive it, or owns them; copies and moves of an owning target point into
// their own storage. `baseName` and `extensions` are never null.
struct SearchTarget {
    boost::optional<ustring> ownedBaseName;
    boost::optional<std::vector<ustring>> ownedExtensions;
    const ustring* baseName;
    const std::vector<ustring>* extensions;

    // A borrowing target: copies nothing and allocates nothing. A temporary name or list would
    // be gone before the target is used, so those calls do not compile; Owning takes them.
    SearchTarget(const ustring& name, const std::vector<ustring>& exts) noexcept
        : baseName(&name), extensions(&exts) {}
    SearchTarget(const ustring&&, const std::vector<ustring>&) = delete;
    SearchTarget(const ustring&, const std::vector<ustring>&&) = delete;
    SearchTarget(const ustring&&, const std::vector<ustring>&&) = delete;

    // An owning target.
    static SearchTarget Owning(ustring name, std::vector<ustring> exts) {
        return SearchTarget(std::move(name), std::move(exts), OwningTag{});
    }

    SearchTarget(const SearchTarget& other)
        : ownedBaseName(other.ownedBaseName),
          ownedExtensions(other.ownedExtensions),
          baseName(other.baseName),
          extensions(other.extensions) {
        Reseat();
    }
    SearchTarget(SearchTarget&& other) noexcept
        : ownedBaseName(std::move(other.ownedBaseName)),
          ownedExtensions(std::move(other.ownedExtensions)),
          baseName(other.baseName),
          extensions(other.extensions) {
        Reseat();
    }
    SearchTarget& operator=(const SearchTarget& other) {
        if (this != &other)
            *this = SearchTarget(other);
        return *this;
    }
    SearchTarget& operator=(SearchTarget&& other) noexcept {
        ownedBaseName = std::move(other.ownedBaseName);
        ownedExtensions = std::move(other.ownedExtensions);
        baseName = other.baseName;
        extensions = other.extensions;
        Reseat();
        return *this;
    }
    ~SearchTarget() = default;

    bool IsOwning() const noexcept { return ownedBaseName.has_value(); }

  private:
    struct OwningTag {};
    SearchTarget(ustring name, std::vector<ustring> exts, OwningTag)
        : ownedBaseName(std::move(name)), ownedExtensions(std::move(exts)) {
        Reseat();
    }
    void Reseat() noexcept {
        if (ownedBaseName)
            baseName = &*ownedBaseName;
        if (ownedExtensions)
            extensions = &*ownedExtensions;
    }
};

}  // namespace detail

// CreateSearchTargetWithExtensionInFilenamePreferred: the target for a name that may carry its own
// extension. An extension written in the name wins and the list is then ignored; otherwise the
// target borrows the name and the list, which must outlive it. A temporary name or list (a
// literal, a conversion such as FromNative(text), a braced list) is refused at compile time, as it
// would be destroyed at the end of the call's statement.
//
//   (u"area", {".vl"})        => borrows: u"area" with {".vl"}
//   (u"area.vlp", {".vl"})    => owns: u"area" with {".vlp"}
//   (u"area", {})             => owns: u"area" with {""}      (the exact name)
//   (u"notes.", {".vl"})      => owns: u"notes" with {"."}
//   (u"v1.2/area", {".vl"})   => borrows: the "." belongs to a folder name
VELMORA_PATHMANAGEMENT_EXPORT detail::SearchTarget
CreateSearchTargetWithExtensionInFilenamePreferred(const ustring& name,
                                                   const std::vector<ustring>& extensions);
detail::SearchTarget CreateSearchTargetWithExtensionInFilenamePreferred(
    const ustring&&, const std::vector<ustring>&) = delete;
detail::SearchTarget CreateSearchTargetWithExtensionInFilenamePreferred(
    const ustring&, const std::vector<ustring>&&) = delete;
detail::SearchTarget CreateSearchTargetWithExtensionInFilenamePreferred(
    const ustring&&, const std::vector<ustring>&&) = delete;

}  // namespace Velmora::PathManagement
