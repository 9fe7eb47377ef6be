#pragma once
// The answers a command has already given, by the bytes of the name asked: the path does not
// change while a command runs, so a name asked again (a build asks for the same few hundred names
// again and again) is looked up once.
//
//   AnswerMemo memo;
//   const auto key = AnswerMemo::KeyOf("area");
//   if (const auto known = memo.Find(key)) {
//       out += known->text;                                   // "/tools/area.vl\n"
//   } else {
//       memo.Remember(key, "/tools/area.vl\n", true);
//   }

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <boost/unordered/unordered_flat_set.hpp>

namespace vpath_cli {

class AnswerMemo {
  public:
    // A name to find or remember, with its hash computed once for both.
    struct Key {
        std::string_view name;
        std::uint32_t hash;
    };
    struct Answer {
        std::string_view text;  // valid until the next Remember
        bool found;
    };

    // Beyond this many names or bytes (names and answers together) the memo forgets what it holds
    // and gathers afresh, so that a long co-process fed ever new names stays small.
    static constexpr std::size_t kMaxNames = std::size_t{1} << 18;
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 26;

    AnswerMemo() = default;
    // The table's hash and equality refer to this object's bytes.
    AnswerMemo(const AnswerMemo&) = delete;
    AnswerMemo& operator=(const AnswerMemo&) = delete;

    static Key KeyOf(std::string_view name) noexcept;

    // Find: the answer remembered for the name, or nothing.
    std::optional<Answer> Find(const Key& key) const;

    // Remember: keeps `text` as the answer to a name that Find did not know. An answer too large
    // for the memo is not kept.
    void Remember(const Key& key, std::string_view text, bool found);

    std::size_t Size() const noexcept { return m_entries.size(); }

  private:
    // A remembered name and its answer, as places in m_bytes: the name's bytes, then the answer's.
    // A small entry and no allocation of its own keeps the table compact, so that looking a name
    // up costs little more than reading its answer.
    struct Entry {
        std::uint32_t hash;
        std::uint32_t offset;
        std::uint32_t nameSize;
        std::uint32_t answerSize;  // its top bit: the name was found
    };
    static constexpr std::uint32_t kFoundBit = std::uint32_t{1} << 31;

    struct Hash {
        using is_transparent = void;
        std::size_t operator()(const Entry& e) const noexcept { return e.hash; }
        std::size_t operator()(const Key& k) const noexcept { return k.hash; }
    };
    struct Equal {
        using is_transparent = void;
        const std::string* bytes;
        std::string_view NameOf(const Entry& e) const noexcept {
            return std::string_view(*bytes).substr(e.offset, e.nameSize);
        }
        bool operator()(const Entry& a, const Entry& b) const noexcept {
            return a.hash == b.hash && NameOf(a) == NameOf(b);
        }
        bool operator()(const Entry& e, const Key& k) const noexcept {
            return e.hash == k.hash && NameOf(e) == k.name;
        }
        bool operator()(const Key& k, const Entry& e) const noexcept { return (*this)(e, k); }
    };

    std::string m_bytes;
    boost::unordered_flat_set<Entry, Hash, Equal> m_entries{0, Hash{}, Equal{&m_bytes}};
};

}  // namespace vpath_cli
