#include <velmora/searchpath/served_change.hpp>

#include <algorithm>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/text/ustring.hpp>

#include "service/wire.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

constexpr std::string_view kChange = "VPch";
constexpr std::string_view kSubscribed = "VPsb";
constexpr std::string_view kLookup = "VPlk";

std::vector<AbsoluteIRI> Locations(const PathManagement::SharedPathEntryVector& entries) {
    std::vector<AbsoluteIRI> locations;
    locations.reserve(entries->size());
    for (const auto& entry : *entries)
        locations.push_back(entry->GetAbsoluteIRI());
    return locations;
}

void PutFolders(std::string& out, const std::vector<AbsoluteIRI>& folders) {
    wire::PutNumber(out, static_cast<std::uint32_t>(folders.size()));
    for (const auto& folder : folders)
        wire::PutBytes(out, text::ToNative(folder.toString()));
}

// Reads a list of folders; a text that is no absolute IRI marks the message malformed.
std::vector<AbsoluteIRI> Folders(wire::Reader& in) {
    std::vector<AbsoluteIRI> folders;
    const std::uint32_t count = in.Count();
    for (std::uint32_t i = 0; i < count && in.Good(); ++i) {
        const std::string text = in.Bytes();
        try {
            folders.emplace_back(text::FromNative(text));
        } catch (const std::exception&) {
            in.Fail();
        }
    }
    return folders;
}

}  // namespace

ServedChange DescribeChange(const PathChangeReport& report, const PathManagement::IPath& after) {
    ServedChange change;
    change.added = Locations(report.added);
    change.removed = Locations(report.removed);
    change.refreshed = Locations(report.refreshedAfter);
    // The report gives the moved entries as a set.
    auto moved = *report.reordered;
    std::stable_sort(moved.begin(), moved.end(), [&](const auto& a, const auto& b) {
        return after.FirstEntryIsBeforeSecondOnPath(*a, *b);
    });
    for (const auto& entry : moved)
        change.moved.push_back(entry->GetAbsoluteIRI());
    return change;
}

ServedChange DescribeChange(const PathManagement::PathChange& change) {
    ServedChange told = DescribeChange(ComparePaths(*change.before, *change.after), *change.after);
    told.kind = change.kind;
    told.generation = change.generation;
    return told;
}

std::string EncodeServedChange(const ServedChange& change) {
    std::string out = wire::Opening(kChange);
    out += static_cast<char>(change.kind);
    wire::PutWide(out, change.generation);
    for (const auto* folders : {&change.added, &change.removed, &change.moved, &change.refreshed})
        PutFolders(out, *folders);
    return out;
}

std::optional<ServedChange> ParseServedChange(std::string_view payload) {
    wire::Reader in(payload);
    if (!in.Opening(kChange))
        return std::nullopt;
    ServedChange change;
    const std::uint8_t kind = in.Byte();
    if (kind > static_cast<std::uint8_t>(PathManagement::PathChangeKind::Refreshed))
        return std::nullopt;
    change.kind = static_cast<PathManagement::PathChangeKind>(kind);
    change.generation = in.Wide();
    for (auto* folders : {&change.added, &change.removed, &change.moved, &change.refreshed})
        *folders = Folders(in);
    return in.Done() ? std::optional(std::move(change)) : std::nullopt;
}

std::string EncodeSubscribed(std::uint64_t generation) {
    std::string out = wire::Opening(kSubscribed);
    wire::PutWide(out, generation);
    return out;
}

std::optional<std::uint64_t> ParseSubscribed(std::string_view payload) {
    wire::Reader in(payload);
    if (!in.Opening(kSubscribed))
        return std::nullopt;
    const std::uint64_t generation = in.Wide();
    return in.Done() ? std::optional(generation) : std::nullopt;
}

std::string EncodeLookupAnswer(const LookupAnswer& answer) {
    std::string out = wire::Opening(kLookup);
    wire::PutWide(out, answer.generation);
    wire::PutNumber(out, static_cast<std::uint32_t>(answer.files.size()));
    for (const auto& file : answer.files) {
        out += static_cast<char>(file ? 1 : 0);
        if (file) {
            wire::PutBytes(out, file->path);
            wire::PutBytes(out, file->iri);
        }
    }
    return out;
}

std::optional<LookupAnswer> ParseLookupAnswer(std::string_view payload) {
    wire::Reader in(payload);
    if (!in.Opening(kLookup))
        return std::nullopt;
    LookupAnswer answer;
    answer.generation = in.Wide();
    const std::uint32_t count = in.Count(1);
    for (std::uint32_t i = 0; i < count && in.Good(); ++i) {
        const std::uint8_t found = in.Byte();
        if (found > 1)
            return std::nullopt;
        if (found == 0) {
            answer.files.emplace_back();
            continue;
        }
        ServedFile file;
        file.path = in.Bytes();
        file.iri = in.Bytes();
        answer.files.emplace_back(std::move(file));
    }
    return in.Done() ? std::optional(std::move(answer)) : std::nullopt;
}

std::optional<ServedFile> ResolveOnPath(const PathManagement::IPath& path, std::string_view name) {
    namespace pm = PathManagement;
    const ustring text = text::FromNative(std::string(name));
    const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
        text, pm::Constants::LanguageExtensions);
    const auto found =
        pm::FindFirstFileVisibleOnPath(path, target, pm::FilenameMatchingPolicy::PlatformDefault);
    if (!found)
        return std::nullopt;
    // Told as `which` tells it: the folder's native path, then the file's name and extension.
    const auto& item = *found->GetPathItem();
    ServedFile file;
    file.path = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(item.GetLocation())) +
                "/" + text::ToNative(item.GetName() + item.GetExtension());
    file.iri = text::ToNative(item.GetAbsoluteIRI().toString());
    return file;
}

}  // namespace Velmora::SearchPath
