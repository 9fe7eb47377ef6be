#include "answer_memo.hpp"

#include <functional>

namespace vpath_cli {

AnswerMemo::Key AnswerMemo::KeyOf(std::string_view name) noexcept {
    const std::size_t hash = std::hash<std::string_view>()(name);
    // The table mixes the hash it is given, so that its low half is enough.
    return {name, static_cast<std::uint32_t>(hash ^ (hash >> 32))};
}

std::optional<AnswerMemo::Answer> AnswerMemo::Find(const Key& key) const {
    const auto it = m_entries.find(key);
    if (it == m_entries.end())
        return std::nullopt;
    return Answer{
        std::string_view(m_bytes).substr(it->offset + it->nameSize, it->answerSize & ~kFoundBit),
        (it->answerSize & kFoundBit) != 0};
}

void AnswerMemo::Remember(const Key& key, std::string_view text, bool found) {
    const std::size_t size = key.name.size() + text.size();
    if (size > kMaxBytes)
        return;
    if (m_entries.size() >= kMaxNames || m_bytes.size() + size > kMaxBytes) {
        m_entries.clear();
        m_bytes.clear();
    }
    const Entry entry{key.hash, static_cast<std::uint32_t>(m_bytes.size()),
                      static_cast<std::uint32_t>(key.name.size()),
                      static_cast<std::uint32_t>(text.size()) | (found ? kFoundBit : 0)};
    m_bytes.append(key.name);
    m_bytes.append(text);
    m_entries.insert(entry);
}

}  // namespace vpath_cli
