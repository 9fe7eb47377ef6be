#include "support/temp_tree.hpp"

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include <fl/filesystem/path.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>

namespace vpath_test {

namespace fs = std::filesystem;

std::string ReadAll(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TempTree::TempTree() {
    std::random_device seed;
    std::mt19937_64 random(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path candidate =
            fs::temp_directory_path() / ("vpath-test-" + std::to_string(random()));
        if (fs::create_directory(candidate)) {
            // The tree is named by its real location so that canonical forms compare equal.
            m_root = fs::canonical(candidate);
            return;
        }
    }
    throw std::runtime_error("cannot create a temporary folder");
}

TempTree::~TempTree() {
    std::error_code ignored;
    // Tests take permissions away; give them back so that everything can be removed.
    for (auto it = fs::recursive_directory_iterator(
             m_root, fs::directory_options::skip_permission_denied, ignored);
         it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::permissions(m_root, fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(m_root, ignored);
}

fs::path TempTree::Path(const std::string& relative) const {
    return relative.empty() ? m_root : m_root / relative;
}

fs::path TempTree::Folder(const std::string& relative) const {
    const fs::path p = Path(relative);
    fs::create_directories(p);
    return p;
}

fs::path TempTree::File(const std::string& relative, const std::string& content) const {
    const fs::path p = Path(relative);
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
    return p;
}

fs::path TempTree::Link(const std::string& relative, const std::string& target) const {
    const fs::path p = Path(relative);
    fs::create_directories(p.parent_path());
    fs::create_symlink(target, p);
    return p;
}

foundation::storage::vfs::AbsoluteIRI TempTree::IRI(const std::string& relative) const {
    return foundation::storage::vfs::toAbsoluteIRI(
        u"file", fl::filesystem::path(Velmora::text::FromNative(Path(relative).native())));
}

}  // namespace vpath_test
