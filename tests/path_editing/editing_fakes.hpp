#pragma once
// Test doubles for the path-editing operations: a current-folder service whose answers the test
// sets, and a manager that records what it is handed.

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathinterfaces/main_search_path_manager.hpp>

namespace vpath_test {

using foundation::storage::vfs::AbsoluteIRI;

// FakeCurrentFolder: "file:///cwd/" + text for any text, except texts the test makes fail.
class FakeCurrentFolder final : public Velmora::current_working_folder::ICurrentWorkingFolder {
  public:
    // absolutize(text) calls `thrower`, which throws what the test wants.
    void FailWith(const ustring& text, std::function<void()> thrower) {
        m_failures[text] = std::move(thrower);
    }
    // absolutize(text) throws FailedToAbsolutizeException with `code`.
    void FailWithCode(const ustring& text, int code) {
        FailWith(text, [text, code] {
            throw Velmora::current_working_folder::FailedToAbsolutizeException(text, code, 0);
        });
    }
    int Calls() const { return m_calls; }

    AbsoluteIRI absolutize(const ustring& text) const override {
        ++m_calls;
        if (const auto it = m_failures.find(text); it != m_failures.end())
            it->second();
        return AbsoluteIRI(u"file:///cwd/" + text);
    }

  private:
    std::map<ustring, std::function<void()>> m_failures;
    mutable int m_calls = 0;
};

// RecordingManager: a manager whose path is a plain list; every apply is recorded, made, and may be
// made to throw or to report.
class RecordingManager final : public Velmora::PathManagement::IMainSearchPathManager {
  public:
    using Components = std::vector<Velmora::VorlanComponents::ComponentIdentifier>;
    explicit RecordingManager(FolderList folders = {})
        : m_folders(std::make_shared<const FolderList>(std::move(folders))) {}

    // The lists handed to ApplyPathAfterAdding or ApplyPathAfterRemoving, in call order.
    std::vector<FolderList> added, removed;
    // Called by each apply before the path changes; may throw or add to the notification.
    std::function<void(foundation::core::except::Notification&)> onApply;
    std::shared_ptr<const Components> packages = std::make_shared<const Components>();

    void ApplyPathAfterAdding(const FolderRange& newPath,
                              foundation::core::except::Notification& notification) override {
        Apply(added.emplace_back(newPath.begin(), newPath.end()), notification);
    }
    void ApplyPathAfterRemoving(const FolderRange& newPath,
                                foundation::core::except::Notification& notification) override {
        Apply(removed.emplace_back(newPath.begin(), newPath.end()), notification);
    }
    std::shared_ptr<const Velmora::PathManagement::IPath> GetPath() const override {
        return nullptr;
    }
    std::shared_ptr<const Components> GetPackagesOnPath() const override { return packages; }
    std::uint64_t AddPathChangeObserver(Velmora::PathManagement::PathChangeObserver) override {
        return 0;
    }
    void RemovePathChangeObserver(std::uint64_t) override {}
    std::shared_ptr<const FolderList> GetPathFolderIRIs() const override { return m_folders; }

  private:
    void Apply(const FolderList& folders, foundation::core::except::Notification& notification) {
        if (onApply)
            onApply(notification);
        if (notification.empty())
            m_folders = std::make_shared<const FolderList>(folders);
    }

    std::shared_ptr<const FolderList> m_folders;
};

}  // namespace vpath_test
