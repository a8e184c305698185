// The character classes, brought up as their own start-up step.
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/text/Str.h"

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
        // In the order of the CHARS_IDENTIFIER... enumerators.
        constexpr std::string_view kIdentifierExtras[] = {"_", "_.", "_-", "_-."};
        unsigned which = CHARS_IDENTIFIER;
        for (std::string_view extras : kIdentifierExtras) {
            ByteSet& set = classes[which++];
            set = ByteSet(kLetters);
            for (char c : kDigits) set.add(c);
            for (char c : extras) set.add(c);
        }
        VESTRA_ASSERT(which == CHARS_CLASS_COUNT);
    }
    ~CharacterClasses() { recordStartupEvent("-basicutil/StrCharacterClasses"); }
};
CharacterClasses g_classes VESTRA_STARTUP(STARTUP_CHARACTER_CLASSES);

}  // namespace

const ByteSet& characterClass(CharacterClass which) noexcept {
    return g_classes.classes[which];
}

}  // namespace basicutil
