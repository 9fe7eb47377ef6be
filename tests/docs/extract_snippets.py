"""Turns the ```cpp blocks of a documentation page into one C++ file that compiles only if every
block compiles as written.

How a block becomes C++:
- A block whose first line is an #include is file scope: it is copied as it stands, in page order,
  before everything else. It may declare what later blocks use (a namespace alias).
- Every other block is a fragment, the statements of one step: it becomes the body of a function of
  its own, so that two fragments may declare the same name.
- The names a fragment takes from the prose or from an earlier block (`path`, `change`, a `log`
  function of the reader's) are declared in an HTML comment on the line before its fence, which a
  reader of the rendered page does not see:

      <!-- snippet-uses: const pm::PathChange& change; const std::function<void()>& done -->

  Each declaration, separated by ";", becomes a parameter of the fragment's function; one that
  declares a function (it ends with ")": `void log(const std::string& text)`) becomes a function of
  the file that does nothing, which a lambda of the fragment can call without capturing it.

The file ends with an empty main, so that linking it proves that the library has what the
fragments call.

Usage: extract_snippets.py PAGE.md OUTPUT.cpp
"""

import re
import sys

USES = re.compile(r"<!--\s*snippet-uses:(.*?)-->")


def blocks(page):
    """(code, uses) of each ```cpp block, in page order."""
    found = []
    lines = page.splitlines()
    i = 0
    while i < len(lines):
        if lines[i].strip() == "```cpp":
            uses = USES.search(lines[i - 1]) if i > 0 else None
            end = i + 1
            while end < len(lines) and lines[end].strip() != "```":
                end += 1
            found.append(("\n".join(lines[i + 1:end]),
                          [u.strip() for u in uses.group(1).split(";") if u.strip()]
                          if uses else []))
            i = end
        i += 1
    return found


def main(page_file, output_file):
    with open(page_file, encoding="utf-8") as f:
        page = f.read()
    file_scope, functions, fragments = [], {}, []
    for n, (code, uses) in enumerate(blocks(page), start=1):
        if code.lstrip().startswith("#include"):
            file_scope.append(f"// block {n}\n{code}\n")
        else:
            for use in uses:
                if use.endswith(")"):
                    functions.setdefault(use, f"[[maybe_unused]] {use} {{}}\n")
            parameters = ", ".join(f"[[maybe_unused]] {u}" for u in uses if not u.endswith(")"))
            fragments.append(f"// block {n}\n[[maybe_unused]] void Block{n}({parameters}) {{\n"
                             f"{code}\n}}\n")
    if not fragments and not file_scope:
        sys.exit(f"{page_file}: no ```cpp block")
    with open(output_file, "w", encoding="utf-8") as f:
        f.write(f"// Generated from {page_file} by extract_snippets.py; do not edit.\n"
                "#include <functional>\n#include <string>\n#include <vector>\n\n")
        f.write("\n".join(file_scope))
        f.write("\nnamespace {\n\n" + "".join(functions.values()) + "\n" + "\n".join(fragments) + "\n}  // namespace\n\n"
                "int main() {\n    return 0;\n}\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
