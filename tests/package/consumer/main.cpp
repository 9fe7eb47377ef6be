// A program built against the installed package: resolves "area" on the folders it is given.

#include <cstdio>

#include <velmora/path_management.hpp>

int main(int argc, char** argv) {
    using namespace Velmora::PathManagement;
    std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    for (int i = 1; i < argc; ++i) {
        folders.push_back(foundation::storage::vfs::toAbsoluteIRI(
            u"file", fl::filesystem::path(Velmora::text::FromNative(argv[i]))));
    }
    Velmora::SearchPath::ScanReport report;
    const auto path = Velmora::SearchPath::MainSearchPath::Scan(folders, report);
    const ustring name = u"area";
    const auto target =
        CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
    const std::uint32_t primary[] = {0};
    const auto found = path->FindFirstInScope(SearchScope(primary), target,
                                              FilenameMatchingPolicy::PlatformDefault);
    if (!found)
        return 1;
    std::printf("%s\n", Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(
                                                    found->GetPathItem()->GetAbsoluteIRI()))
                            .c_str());
    return 0;
}
