#pragma once
// vpath which --explain NAME: how a name resolves, told step by step.

#include <string>

#include "resolver.hpp"

namespace vpath_cli {

// Explain: prints the folders and files tried for `arg`, in order, the answer, and the near misses
// a person would want to hear of (a private folder that needs --from, a package-qualified name, a
// case difference, a resources folder, another extension, a shadowed file). True when it resolves.
bool Explain(const Resolver& resolver, const std::string& arg, bool json);

}  // namespace vpath_cli
