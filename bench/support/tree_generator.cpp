#include "support/tree_generator.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

namespace vpath_bench {
namespace {

// SplitMix64: a tiny generator whose output is fixed by its seed on every platform, unlike the
// standard distributions.
class Random {
  public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    std::size_t Below(std::size_t n) { return static_cast<std::size_t>(Next() % n); }

  private:
    std::uint64_t m_state;
};

struct PlannedFile {
    std::string base;
    std::size_t extension;  // index into kExtensions
    std::int64_t sharedId;  // -1 for a name of one folder only
};

// What one ordinary folder holds. Planned apart from writing so that folders can be written in
// parallel while the manifest is built in path order.
struct FolderPlan {
    std::vector<PlannedFile> files;
    bool hasSpecials = false;
    std::size_t privateSharedId = 0;
};

struct Pool {
    std::size_t size;       // number of shared names
    std::size_t perFolder;  // shared names per folder
};

Pool PoolOf(const TreeShape& shape) {
    const std::size_t perFolder = shape.filesPerFolder * shape.sharedPercent / 100;
    const std::size_t spread = std::max<std::size_t>(1, shape.foldersPerSharedName);
    const std::size_t size = std::max<std::size_t>(1, shape.folders * perFolder / spread);
    return Pool{size, std::min(perFolder, size)};
}

std::size_t PickExtension(Random& random) {
    const auto roll = random.Below(100);
    return roll < 70 ? 2 : roll < 90 ? 1 : 0;  // mostly sources, some protected, few native
}

std::string SharedName(std::size_t id) {
    return "shared_" + std::to_string(id);
}

FolderPlan PlanFolder(const TreeShape& shape, const Pool& pool, std::size_t folder) {
    Random random(shape.seed * 0xD1B54A32D192ED03ull + folder);
    FolderPlan plan;
    plan.files.reserve(shape.filesPerFolder);
    std::vector<std::size_t> shared;
    while (shared.size() < pool.perFolder) {
        const std::size_t id = random.Below(pool.size);
        if (std::find(shared.begin(), shared.end(), id) == shared.end())
            shared.push_back(id);
    }
    for (const std::size_t id : shared) {
        plan.files.push_back(
            {SharedName(id), PickExtension(random), static_cast<std::int64_t>(id)});
    }
    const std::string prefix = "fn_" + std::to_string(folder) + "_";
    for (std::size_t k = 0; plan.files.size() < shape.filesPerFolder; ++k)
        plan.files.push_back({prefix + std::to_string(k), PickExtension(random), -1});
    plan.hasSpecials = shape.specialsEvery != 0 &&
                       folder % shape.specialsEvery == shape.seed % shape.specialsEvery;
    plan.privateSharedId = random.Below(pool.size);
    return plan;
}

std::string FolderName(std::size_t folder, std::size_t folders) {
    const std::string digits = std::to_string(folder);
    const std::size_t width =
        std::max({std::size_t{5}, std::to_string(folders).size(), digits.size()});
    std::string name(1 + width, '0');  // "d00042": names sort in path order
    name[0] = 'd';
    name.replace(name.size() - digits.size(), digits.size(), digits);
    return name;
}

void MakeFolder(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) != 0)
        throw std::system_error(errno, std::generic_category(), "mkdir " + path);
}

void MakeFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "create " + path);
    ::close(fd);
}

// The special sub-folders of one folder; the private folder holds a shared name too, which a
// search of the ordinary folders must not see.
std::size_t WriteSpecials(const std::string& folder, std::size_t index, const FolderPlan& plan,
                          const TreeShape& shape) {
    const std::string tag = std::to_string(index) + "_";
    const std::string package = folder + "/+pkg";
    const std::string classFolder = folder + "/@Cls";
    const std::string privateFolder = folder + "/private";
    for (const auto& f : {package, classFolder, privateFolder})
        MakeFolder(f);
    for (std::size_t k = 0; k < shape.filesPerSpecial; ++k) {
        MakeFile(package + "/pk_" + tag + std::to_string(k) + ".vl");
        MakeFile(classFolder + "/" +
                 (k == 0 ? std::string("Cls") : "m_" + tag + std::to_string(k)) + ".vl");
        MakeFile(privateFolder + "/" +
                 (k == 0 ? SharedName(plan.privateSharedId) : "pv_" + tag + std::to_string(k)) +
                 ".vl");
    }
    return 3 * shape.filesPerSpecial;
}

// Writes folders first, first + stride, ...; returns the number of files written.
std::size_t WriteFolders(const GeneratedTree& tree, const std::vector<FolderPlan>& plans,
                         const TreeShape& shape, std::size_t first, std::size_t stride) {
    std::size_t files = 0;
    for (std::size_t i = first; i < plans.size(); i += stride) {
        const std::string folder = tree.folders[i].string();
        MakeFolder(folder);
        std::string path;
        for (const auto& file : plans[i].files) {
            path.assign(folder).append("/").append(file.base).append(kExtensions[file.extension]);
            MakeFile(path);
            ++files;
        }
        if (plans[i].hasSpecials)
            files += WriteSpecials(folder, i, plans[i], shape);
    }
    return files;
}

NameRecord Named(const std::string& base) {
    NameRecord record;
    record.base = base;
    return record;
}

void Record(NameRecord& record, std::size_t extension, std::size_t folder) {
    auto& first = record.firstByExtension[extension];
    if (first == NameRecord::kNowhere)
        first = static_cast<std::int64_t>(folder);
}

}  // namespace

std::int64_t NameRecord::FirstFolder() const noexcept {
    std::int64_t best = kNowhere;
    for (const auto folder : firstByExtension) {
        if (folder != kNowhere && (best == kNowhere || folder < best))
            best = folder;
    }
    return best;
}

std::size_t NameRecord::ExtensionInFirstFolder() const noexcept {
    const auto first = FirstFolder();
    for (std::size_t e = 0; e < firstByExtension.size(); ++e) {
        if (firstByExtension[e] == first)
            return e;
    }
    return 0;
}

GeneratedTree GenerateTree(const std::filesystem::path& root, const TreeShape& shape) {
    GeneratedTree tree;
    tree.root = root;
    const Pool pool = PoolOf(shape);
    std::vector<FolderPlan> plans;
    plans.reserve(shape.folders);
    for (std::size_t i = 0; i < shape.folders; ++i) {
        plans.push_back(PlanFolder(shape, pool, i));
        tree.folders.push_back(root / FolderName(i, shape.folders));
        tree.folderCount += plans.back().hasSpecials ? 4 : 1;
    }

    // Creating files is bound by system calls; a few threads keep the disk's queue busy.
    const std::size_t threads = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 8);
    std::vector<std::size_t> written(threads, 0);
    std::vector<std::exception_ptr> errors(threads);
    {
        std::vector<std::jthread> workers;
        for (std::size_t t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                try {
                    written[t] = WriteFolders(tree, plans, shape, t, threads);
                } catch (...) {
                    errors[t] = std::current_exception();
                }
            });
        }
    }
    for (const auto& error : errors) {
        if (error)
            std::rethrow_exception(error);
    }
    for (const auto n : written)
        tree.fileCount += n;

    std::unordered_map<std::int64_t, std::size_t> sharedSlot;
    for (std::size_t i = 0; i < plans.size(); ++i) {
        for (const auto& file : plans[i].files) {
            if (file.sharedId < 0) {
                tree.singleNames.push_back(Named(file.base));
                Record(tree.singleNames.back(), file.extension, i);
                continue;
            }
            const auto [it, added] = sharedSlot.emplace(file.sharedId, tree.sharedNames.size());
            if (added)
                tree.sharedNames.push_back(Named(file.base));
            Record(tree.sharedNames[it->second], file.extension, i);
        }
    }
    return tree;
}

std::string MissingName(std::size_t k) {
    return "absent_" + std::to_string(k);
}

}  // namespace vpath_bench
