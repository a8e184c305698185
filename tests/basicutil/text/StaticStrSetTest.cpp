#include "basicutil/text/StaticStrSet.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace basicutil {
namespace {

constexpr auto kLevels =
    makeStaticStrSet({"DEBUG", "INFO", "NOTICE", "WARN", "ERROR", "CRIT", "ALERT", "FATAL", "EMERG"});
constexpr auto kFolded = makeStaticStrSet<STR_CASE_FOLD>({"Jan", "Feb", "Mar", "Apr", "May", "Jun"});

TEST(StaticStrSetTest, ConstantSetsAreBuiltByTheCompiler) {
    static_assert(kLevels.find("WARN") == 3);
    static_assert(kLevels.find("warn") == kLevels.npos);
    static_assert(kFolded.find("mAY") == 4);
    static_assert(kFolded.find("Ju") == kFolded.npos);
    for (std::size_t i = 0; i < kLevels.size(); ++i) {
        EXPECT_EQ(kLevels.find(kLevels.member(i)), i);
        EXPECT_EQ(kLevels.find(HashedStrSegment(kLevels.member(i))), i);  // by the stored hash
    }
    for (std::string_view miss : {"", "DEBUGX", "INF", "EMERGENCY", "debug"})
        EXPECT_EQ(kLevels.find(miss), kLevels.npos);
    EXPECT_EQ(kFolded.find(std::string(300, 'a')), kFolded.npos);  // longer than any member can fold
}

// Members of every count from 1 to 10,000 (words, numbers, near-duplicates that differ in one
// byte or in case): each found at its index; keys around them not found.
TEST(StaticStrSetTest, EveryMemberFoundAndNothingElse) {
    std::mt19937_64 rng(9);
    for (std::size_t count : {1u, 2u, 3u, 7u, 9u, 60u, 100u, 257u, 1000u, 2000u, 10000u}) {
        for (StrCase mode : {STR_CASE_EXACT, STR_CASE_FOLD}) {
            std::set<std::string> unique;
            std::vector<std::string> members;
            while (members.size() < count) {
                std::string m;
                switch (rng() % 3) {
                    case 0:
                        m = std::to_string(rng() % 100000);
                        break;
                    case 1:
                        m = "key." + std::to_string(members.size());
                        break;
                    default:
                        for (std::size_t n = 1 + rng() % 12; n > 0; --n)
                            m.push_back(static_cast<char>('a' + rng() % 26));
                }
                std::string folded = m;
                for (char& c : folded) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
                if (unique.insert(folded).second) members.push_back(m);
            }
            const std::vector<std::string_view> views(members.begin(), members.end());
            StaticStrSet set;
            ASSERT_TRUE(StaticStrSet::build(views, set, mode)) << count;
            for (std::size_t i = 0; i < count; ++i) {
                ASSERT_EQ(set.find(members[i]), i) << count << " " << members[i];
                std::string upper = members[i];
                for (char& c : upper) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
                if (upper != members[i]) {
                    ASSERT_EQ(set.find(upper) == i, mode == STR_CASE_FOLD) << upper;
                }
                std::string changed = members[i];
                changed.back() = static_cast<char>(changed.back() ^ 0x40);
                if (unique.count(changed) == 0) {
                    ASSERT_EQ(set.find(changed), set.npos) << changed;
                }
                ASSERT_EQ(set.find(members[i] + "x") == set.npos, unique.count(members[i] + "x") == 0);
            }
            ASSERT_EQ(set.find(std::string_view()), set.npos);  // no member is empty
        }
    }
}

// Short keys are folded eight bytes at a time: every byte value, at every position of the word and
// beside every other kind of byte, folds as the byte-at-a-time rule says.
TEST(StaticStrSetTest, WordFoldMatchesByteFold) {
    using static_str_set_details::foldAscii;
    using static_str_set_details::foldAsciiWord;
    for (unsigned value = 0; value < 256; ++value) {
        for (unsigned neighbour : {0x00u, 0x40u, 0x41u, 0x5Au, 0x5Bu, 0x60u, 0x7Fu, 0x80u, 0xC1u, 0xFFu}) {
            for (int at = 0; at < 8; ++at) {
                std::uint64_t word = 0, expected = 0;
                for (int i = 0; i < 8; ++i) {
                    const unsigned byte = i == at ? value : neighbour;
                    word |= std::uint64_t{byte} << (8 * i);
                    expected |= std::uint64_t{static_cast<unsigned char>(foldAscii(static_cast<char>(byte)))}
                                << (8 * i);
                }
                ASSERT_EQ(foldAsciiWord(word), expected) << value << " at " << at << " among " << neighbour;
            }
        }
    }
}

// A set made empty and one built from no members answer every key with npos, reading only their
// own table (a shift of the whole word width once sent the empty set's probe far outside it).
TEST(StaticStrSetTest, EmptySetsFindNothing) {
    for (StrCase mode : {STR_CASE_EXACT, STR_CASE_FOLD}) {
        StaticStrSet made, built;
        ASSERT_TRUE(StaticStrSet::build(std::vector<std::string_view>{}, built, mode));
        for (std::string_view key :
             {"", "a", "INFO", "appender.A1.fileName", "a much longer key of 33 bytes.."}) {
            EXPECT_EQ(made.find(key), made.npos) << key;
            EXPECT_EQ(built.find(key), built.npos) << key;
            EXPECT_EQ(made.find(HashedStrSegment(key)), made.npos) << key;
        }
        EXPECT_EQ(built.size(), 0u);
    }
}

TEST(StaticStrSetTest, DuplicatesAndOverlongFoldedMembersAreRefused) {
    StaticStrSet set;
    ASSERT_TRUE(StaticStrSet::build({"kept"}, set));
    Status st = StaticStrSet::build({"a", "b", "a"}, set);
    EXPECT_EQ(st.error(), EINVAL);
    EXPECT_EQ(st.text().view(), "duplicate member \"a\"");
    EXPECT_EQ(set.find("kept"), 0u);  // left as it was
    st = StaticStrSet::build({"Jan", "JAN"}, set, STR_CASE_FOLD);
    EXPECT_EQ(st.text().view(), "duplicate member \"JAN\"");
    EXPECT_TRUE(StaticStrSet::build({"Jan", "JAN"}, set, STR_CASE_EXACT));
    const std::string longMember(257, 'x');
    EXPECT_FALSE(StaticStrSet::build({"a", longMember}, set, STR_CASE_FOLD));
    EXPECT_TRUE(StaticStrSet::build({}, set));
    EXPECT_EQ(set.find(""), set.npos);
}

// Members whose whole 64-bit hashes are equal cannot be placed apart: the build says so (and
// tries the next seed); the same text twice is a duplicate instead. Hashes chosen by hand, since
// the string hash has no known collision.
TEST(StaticStrSetTest, EqualHashesAreToldApartFromDuplicates) {
    using namespace static_str_set_details;
    const std::string_view members[] = {"alpha", "beta", "gamma", "beta"};
    const std::uint64_t colliding[] = {7, 0x1234567890ABCDEFULL, 7, 99};
    const std::uint64_t duplicated[] = {7, 0x1234567890ABCDEFULL, 8, 0x1234567890ABCDEFULL};
    Slot slots[8];
    std::uint64_t pilots[3];
    std::uint32_t order[4], starts[3];
    std::size_t which = 0;
    EXPECT_EQ(placeMembers(members, colliding, 4, STR_CASE_EXACT, slots, 8, pilots, 2, order, starts, which),
              2);
    EXPECT_EQ(placeMembers(members, duplicated, 4, STR_CASE_EXACT, slots, 8, pilots, 2, order, starts, which),
              1);
    EXPECT_EQ(members[which], "beta");
    const std::uint64_t apart[] = {7, 0x1234567890ABCDEFULL, 8, 99};
    EXPECT_EQ(placeMembers(members, apart, 3, STR_CASE_EXACT, slots, 8, pilots, 2, order, starts, which), 0);
}

// A lookup compares bytes only after the hashes matched, so a fault in the comparison would hide
// behind the hash: it is held to every length and every differing position here.
TEST(StaticStrSetTest, ByteComparisonSeesEveryPosition) {
    using static_str_set_details::sameBytes;
    const std::string base = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGH";
    for (std::size_t n = 0; n <= 44; ++n) {
        ASSERT_TRUE(sameBytes(base.data(), std::string(base).data(), n)) << n;
        for (std::size_t at = 0; at < n; ++at) {
            std::string other = base;
            other[at] = '!';
            ASSERT_FALSE(sameBytes(base.data(), other.data(), n)) << n << " bytes, differing at " << at;
        }
    }
}

TEST(StaticStrSetTest, MapsGiveEachMembersValue) {
    static constexpr auto kSizes = makeStaticStrMap<int>({{"KB", 10}, {"MB", 20}, {"GB", 30}});
    static_assert(kSizes.get("MB", -1) == 20 && kSizes.get("TB", -1) == -1);
    static constexpr auto kFoldedSizes = makeStaticStrMap<int, STR_CASE_FOLD>({{"KB", 10}, {"MB", 20}});
    EXPECT_EQ(kFoldedSizes.get("mb", -1), 20);
    EXPECT_EQ(kFoldedSizes.find("kb"), 0u);

    StaticStrMap<int> map;
    ASSERT_TRUE(StaticStrMap<int>::build({{"one", 1}, {"two", 2}, {"three", 3}}, map));
    EXPECT_EQ(map.get("two", -1), 2);
    EXPECT_EQ(map.get("four", -1), -1);
    EXPECT_EQ(map.find(HashedStrSegment("three")), 2u);
    EXPECT_FALSE(StaticStrMap<int>::build({{"x", 1}, {"x", 2}}, map));
}

}  // namespace
}  // namespace basicutil
