#include "libzero/bounded-path.h"

#include <errno.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(BoundedPathTest, OperationsWithinTheLimit) {
    char buf[32];
    bounded_path p;
    bounded_path_init(&p, buf, sizeof buf);
    EXPECT_STREQ(bounded_path_str(&p), "");
    EXPECT_EQ(bounded_path_pop(&p), ENOENT);

    struct Step {
        char op;  // s(et), p(ush), a(ppend), o (pop)
        const char* text;
        int result;
        const char* after;
    } steps[] = {
        {'s', "/var", 0, "/var"},
        {'p', "log", 0, "/var/log"},
        {'p', "//app", 0, "/var/log/app"},
        {'a', ".1", 0, "/var/log/app.1"},
        {'o', "", 0, "/var/log"},
        {'p', "", 0, "/var/log"},
        {'o', "", 0, "/var"},
        {'o', "", 0, "/"},
        {'o', "", ENOENT, "/"},
        {'p', "x", 0, "/x"},
        {'s', "rel", 0, "rel"},
        {'o', "", 0, ""},
        {'p', "a/b", 0, "a/b"},
        {'s', "a//", 0, "a//"},
        {'p', "c", 0, "a//c"},
        {'o', "", 0, "a"},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(std::string(1, s.op) + " " + s.text);
        const std::size_t n = std::char_traits<char>::length(s.text);
        const int rc = s.op == 's'   ? bounded_path_set(&p, s.text, n)
                       : s.op == 'p' ? bounded_path_push(&p, s.text, n)
                       : s.op == 'a' ? bounded_path_append(&p, s.text, n)
                                     : bounded_path_pop(&p);
        EXPECT_EQ(rc, s.result);
        EXPECT_STREQ(bounded_path_str(&p), s.after);
        EXPECT_EQ(bounded_path_length(&p), std::char_traits<char>::length(s.after));
    }
}

// At every capacity, each operation either gives exactly the unbounded answer or fails with
// ENAMETOOLONG and leaves the path as it was.
TEST(BoundedPathTest, NeverTruncates) {
    std::mt19937 rng(7);
    const char* const parts[] = {"a", "bc", "/def", "ghij/", "k/l", "", "//"};
    for (std::size_t capacity = 1; capacity <= 24; ++capacity) {
        std::string buffer(capacity + 8, '#');  // bytes past the capacity must stay '#'
        bounded_path p;
        bounded_path_init(&p, buffer.data(), capacity);
        std::string model;
        for (int step = 0; step < 200; ++step) {
            const char* part = parts[rng() % std::size(parts)];
            const std::size_t n = std::char_traits<char>::length(part);
            std::string expected = model;
            int rc;
            switch (rng() % 3) {
                case 0:
                    rc = bounded_path_append(&p, part, n);
                    expected += part;
                    break;
                case 1: {
                    rc = bounded_path_push(&p, part, n);
                    std::string c = part;
                    while (!c.empty() && c[0] == '/') c.erase(0, 1);
                    if (!c.empty()) {
                        if (!expected.empty() && expected.back() != '/') expected += '/';
                        expected += c;
                    }
                    break;
                }
                default:
                    rc = bounded_path_set(&p, part, n);
                    expected = part;
            }
            SCOPED_TRACE("capacity " + std::to_string(capacity) + " model " + model + " part " + part);
            if (expected.size() < capacity) {
                ASSERT_EQ(rc, 0);
                model = expected;
            } else {
                ASSERT_EQ(rc, ENAMETOOLONG);
            }
            ASSERT_EQ(std::string(bounded_path_str(&p)), model);
            ASSERT_EQ(buffer.substr(capacity), std::string(8, '#'));
        }
    }
}

TEST(BoundedPathTest, RefusesNulBytes) {
    char buf[16];
    bounded_path p;
    bounded_path_init(&p, buf, sizeof buf);
    ASSERT_EQ(bounded_path_set(&p, "ok", 2), 0);
    EXPECT_EQ(bounded_path_push(&p, "a\0b", 3), EINVAL);
    EXPECT_EQ(bounded_path_append(&p, "\0", 1), EINVAL);
    EXPECT_EQ(bounded_path_set(&p, "x\0", 2), EINVAL);
    EXPECT_STREQ(bounded_path_str(&p), "ok");
}

}  // namespace
