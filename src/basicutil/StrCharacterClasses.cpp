// The character classes, brought up as their own start-up step.
#include "basicutil/StartupOrder.h"
#include "basicutil/Str.h"

namespace basicutil {

namespace {

constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kDigits = "0123456789";

struct CharacterClasses {
    ByteSet classes[CHARS_CLASS_COUNT];

    CharacterClasses() {
        recordStartupEvent("+basicutil/StrCharacterClasses");
        classes[CHARS_WHITESPACE] = ByteSet(" \t\n\v\f\r");
        classes[CHARS_SIGNED_DIGITS] = ByteSet("-0123456789");
        classes[CHARS_NUMBER] = ByteSet("-+xX0123456789abcdefABCDEF");
        classes[CHARS_LETTERS] = ByteSet(kLetters);
        const char* const identifierExtras[] = {"_", "_.", "_-", "_-."};
        for (unsigned i = 0; i < 4; ++i) {
            ByteSet& set = classes[CHARS_IDENTIFIER + i];
            set = ByteSet(kLetters);
            for (char c : kDigits) set.add(c);
            for (const char* c = identifierExtras[i]; *c != '\0'; ++c) set.add(*c);
        }
    }
    ~CharacterClasses() { recordStartupEvent("-basicutil/StrCharacterClasses"); }
};
CharacterClasses g_classes VESTRA_STARTUP(STARTUP_CHARACTER_CLASSES);

}  // namespace

const ByteSet& characterClass(CharacterClass which) noexcept {
    return g_classes.classes[which];
}

}  // namespace basicutil
