// vestra hash and vestra random.
#include <string>
#include <vector>

#include "basicutil/text/BasicConversions.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/SimpleRandomNumber.h"
#include "basicutil/text/StrHash.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

// A seed: decimal, within 64 bits. False (diagnosed) otherwise.
bool seedValue(const std::string& text, std::uint64_t& seed) {
    if (decimalCount(text, seed)) return true;
    diagnose("'" + text + "': not a seed (decimal, 0 to 18446744073709551615)");
    return false;
}

// A signed 64-bit integer: an optional "-", then decimal digits.
bool integerValue(const std::string& text, std::int64_t& value) {
    const std::size_t digitsAt = !text.empty() && text[0] == '-' ? 1 : 0;
    const bool digits =
        text.size() > digitsAt && text.find_first_not_of("0123456789", digitsAt) == std::string::npos;
    if (digits && do_signed_fetch(text.data(), text.data() + text.size(), value, INT64_MIN, INT64_MAX))
        return true;
    diagnose("'" + text + "': not an integer from -9223372036854775808 to 9223372036854775807");
    return false;
}

// vestra hash [--seed S] [FILE...]: "<16 hex digits>  <name>", as sha256sum writes its lines.
class HashCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* hash = parent.add_subcommand(
            "hash",
            "The library's string hash of each file (64 bits, the same on every platform),\n"
            "one line each: the hash in hexadecimal, two blanks, the name.\n"
            "Example: vestra hash --seed 7 a.txt b.txt");
        hash->add_option("--seed", _seed, "the hash's seed, decimal (default 0)");
        hash->add_option("FILE", _files, "the inputs, - for standard input (the default)");
        return hash;
    }
    int run() override {
        std::uint64_t seed = 0;
        if (!_seed.empty() && !seedValue(_seed, seed)) return kUsage;
        if (_files.empty()) _files.push_back("-");
        int status = kOk;
        for (const std::string& file : _files) {
            StrHasher hasher(seed);
            if (!forEachChunk(
                    file, [&hasher](std::string_view chunk) { hasher.update(chunk.data(), chunk.size()); })) {
                status = kNegative;
                continue;
            }
            out().write(strprintf("%016llx  %s\n", static_cast<unsigned long long>(hasher.finish()), file));
        }
        return status;
    }

  private:
    std::string _seed;
    std::vector<std::string> _files;
};

// vestra random [--seed S] [--count N] LOW HIGH | bytes N | shuffle [FILE]
class RandomCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* random = parent.add_subcommand(
            "random",
            "Numbers from the simple random generator (not for secrets): N integers in [LOW, HIGH],\n"
            "N random bytes, or the lines of a file in random order, as shuf(1) prints them.\n"
            "Example: vestra random --count 3 1 6 | vestra random bytes 16 | vestra random shuffle "
            "names.txt");
        random->add_option("--seed", _seed, "the generator's seed, decimal: the same output every time");
        random->add_option("--count", _count, "how many integers (default 1)");
        random->add_option("ARGS", _arguments, "LOW HIGH, or bytes N, or shuffle [FILE]")->required();
        return random;
    }
    int run() override {
        std::uint64_t seed = 0;
        if (!_seed.empty() && !seedValue(_seed, seed)) return kUsage;
        SimpleRandomNumber rng(_seed.empty() ? processRandom() : seed);
        const std::string& first = _arguments[0];
        if (first == "bytes") return bytes(rng);
        if (first == "shuffle") return shuffle(rng);
        return integers(rng);
    }

  private:
    int integers(SimpleRandomNumber& rng) {
        std::int64_t low = 0, high = 0;
        std::uint64_t count = 1;
        if (_arguments.size() != 2) {
            diagnose("usage: vestra random [--count N] LOW HIGH");
            return kUsage;
        }
        if (!integerValue(_arguments[0], low) || !integerValue(_arguments[1], high)) return kUsage;
        if (low > high) {
            diagnose("LOW is above HIGH");
            return kUsage;
        }
        if (!_count.empty() && !countValue(_count, count)) return kUsage;
        Str lines;
        for (std::uint64_t i = 0; i < count; ++i) {
            appendf(lines, "%lld\n", static_cast<long long>(rng.between(low, high)));
            if (lines.size() >= kBlock) {
                out().write(lines);
                lines.clear();
            }
        }
        out().write(lines);
        return kOk;
    }

    int bytes(SimpleRandomNumber& rng) {
        std::uint64_t n = 0;
        if (_arguments.size() != 2 || !countValue(_arguments[1], n)) {
            if (_arguments.size() != 2) diagnose("usage: vestra random bytes N");
            return kUsage;
        }
        while (n > 0) {
            const std::size_t block = n < kBlock ? static_cast<std::size_t>(n) : kBlock;
            rng.fill(out().room(block), block);
            out().commit(block);
            n -= block;
        }
        return kOk;
    }

    int shuffle(SimpleRandomNumber& rng) {
        if (_arguments.size() > 2) {
            diagnose("usage: vestra random shuffle [FILE]");
            return kUsage;
        }
        // Every line, the last one with or without its newline, then each written with one.
        std::string text;
        if (!forEachChunk(_arguments.size() == 2 ? _arguments[1] : "-",
                          [&text](std::string_view chunk) { text.append(chunk); }))
            return kNegative;
        std::vector<std::string_view> lines;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at);
            const std::size_t stop = end == std::string::npos ? text.size() : end;
            lines.emplace_back(text.data() + at, stop - at);
            at = stop + 1;
        }
        rng.shuffle(lines.begin(), lines.end());
        for (std::string_view line : lines) {
            out().write(line);
            out().write("\n");
        }
        return kOk;
    }

    // A count: decimal, within 64 bits.
    static bool countValue(const std::string& text, std::uint64_t& n) {
        if (decimalCount(text, n)) return true;
        diagnose("'" + text + "': not a count (decimal, 0 to 18446744073709551615)");
        return false;
    }

    std::string _seed, _count;
    std::vector<std::string> _arguments;
};

}  // namespace

void addRandomCommands(CLI::App& app, Context& context) {
    context.add<HashCommand>(app);
    context.add<RandomCommand>(app);
}

}  // namespace vestra::tool
