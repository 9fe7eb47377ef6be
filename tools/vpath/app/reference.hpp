#pragma once
// The reference of vpath beyond its commands and options: how the path is kept, the cache, what a
// change report means, the JSON shapes, names that are not UTF-8, files and environment. One text
// for two readers: the man page renders every section, and `vpath help TOPIC` prints one.

#include <string>
#include <vector>

namespace vpath_cli {

// ReferenceItem: a paragraph (no term), or a term and what it means. Text between backquotes is
// literal: bold in the man page, bare in help.
struct ReferenceItem {
    const char* term;
    const char* text;
};

// ReferenceSection: its man page heading, the topic that `vpath help` knows it by (none for a
// section only the man page shows), and its items.
struct ReferenceSection {
    const char* title;
    const char* topic;
    std::vector<ReferenceItem> items;
};

// ReferenceSections: in the order the man page shows them, after OPTIONS.
const std::vector<ReferenceSection>& ReferenceSections();
// Description: the man page's DESCRIPTION, shown before COMMANDS.
const ReferenceSection& Description();

// ManText: the section's items as roff (without its heading).
std::string ManText(const ReferenceSection& section);
// PlainText: the section as `vpath help TOPIC` prints it: its title, then its items wrapped at 79
// columns.
std::string PlainText(const ReferenceSection& section);

}  // namespace vpath_cli
