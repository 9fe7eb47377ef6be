#pragma once
// TempTree: a fresh temporary folder for one test, removed when the test ends.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/text/ustring.hpp>

namespace vpath_test {

class TempTree {
  public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::filesystem::path& Root() const { return m_root; }
    // The native path of `relative` (bytes, may be non-UTF-8) under the root.
    std::filesystem::path Path(const std::string& relative) const;
    // Creates the folder `relative` and any folders above it.
    std::filesystem::path Folder(const std::string& relative) const;
    // Creates the file `relative` (and its folders) holding `content`.
    std::filesystem::path File(const std::string& relative, const std::string& content = "") const;
    // Creates a symbolic link at `relative` pointing to `target` (as written).
    std::filesystem::path Link(const std::string& relative, const std::string& target) const;
    // The location of `relative` under the root (the root itself for "").
    foundation::storage::vfs::AbsoluteIRI IRI(const std::string& relative = "") const;

  private:
    std::filesystem::path m_root;
};

// ReadAll: the bytes of `file`; empty when it cannot be read.
std::string ReadAll(const std::filesystem::path& file);

// TempTreeTest: a test fixture that owns a TempTree.
class TempTreeTest : public ::testing::Test {
  protected:
    TempTree tree;
};

}  // namespace vpath_test
