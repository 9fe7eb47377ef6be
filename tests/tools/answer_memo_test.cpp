#include "answer_memo.hpp"

#include <string>

#include <gtest/gtest.h>

namespace vpath_cli {
namespace {

std::string Text(const std::optional<AnswerMemo::Answer>& answer) {
    return answer ? std::string(answer->text) + (answer->found ? " found" : " missing") : "none";
}

TEST(AnswerMemo, EachNameGetsItsOwnAnswer) {
    AnswerMemo memo;
    // Names that share their beginnings or differ only in length, a miss and the empty name.
    const struct {
        std::string name;
        std::string answer;
        bool found;
    } cases[] = {{"a", "/t/a.vl\n", true},
                 {"ab", "/t/ab.vlp\n", true},
                 {"b", "\n", false},
                 {"", "\n", false},
                 {"a\xfe", "/t/a\xfe.vl\n", true}};
    for (const auto& c : cases)
        memo.Remember(AnswerMemo::KeyOf(c.name), c.answer, c.found);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf(c.name))),
                  c.answer + (c.found ? " found" : " missing"));
    }
    EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf("abc"))), "none");
}

TEST(AnswerMemo, AFullMemoForgetsAndKeepsAnsweringRight) {
    AnswerMemo memo;
    const auto name = [](std::size_t k) { return "n" + std::to_string(k); };
    for (std::size_t k = 0; k < AnswerMemo::kMaxNames; ++k)
        memo.Remember(AnswerMemo::KeyOf(name(k)), name(k) + "\n", true);
    EXPECT_EQ(memo.Size(), AnswerMemo::kMaxNames);
    memo.Remember(AnswerMemo::KeyOf("last"), "/t/last.vl\n", true);
    EXPECT_EQ(memo.Size(), 1u);
    EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf(name(7)))), "none");
    EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf("last"))), "/t/last.vl\n found");

    // The same by bytes: an answer that does not fit beside the others empties the memo, and one
    // larger than the whole memo is not kept.
    const std::string big(AnswerMemo::kMaxBytes / 2, 'x');
    memo.Remember(AnswerMemo::KeyOf("big1"), big, true);
    memo.Remember(AnswerMemo::KeyOf("big2"), big, true);
    EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf("last"))), "none");
    EXPECT_EQ(memo.Find(AnswerMemo::KeyOf("big2"))->text.size(), big.size());
    memo.Remember(AnswerMemo::KeyOf("huge"), std::string(AnswerMemo::kMaxBytes, 'y'), true);
    EXPECT_EQ(Text(memo.Find(AnswerMemo::KeyOf("huge"))), "none");
    EXPECT_TRUE(memo.Find(AnswerMemo::KeyOf("big2")));
}

}  // namespace
}  // namespace vpath_cli
