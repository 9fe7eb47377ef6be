#include <velmora/packages/vorlan_packages.hpp>

#include <cstdlib>
#include <string_view>

namespace VorlanPackages {

bool isAtFolderPrecedenceFeatureOn() {
    const char* value = std::getenv("VPATH_AT_FOLDER_PRECEDENCE");
    if (value == nullptr)
        return false;
    const std::string_view v(value);
    return v == "1" || v == "on" || v == "true" || v == "yes" || v == "ON" || v == "TRUE" ||
           v == "YES";
}

}  // namespace VorlanPackages
