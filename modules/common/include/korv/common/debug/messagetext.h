#pragma once

#include "korv/common/api.h"
#include "korv/common/types.h"

#include <concepts>
#include <string_view>
#include <type_traits>

namespace KORV::Common::Debug
{
/// Builds one report or trace text in place. It never allocates, so it works when memory has run out and before the
/// library is initialised. Numbers are decimal, floats have six significant digits, the locale plays no part.
/// A text beyond CAPACITY characters is cut.
class KORV_COMMON_API MessageText
{
public:
    static constexpr size_t CAPACITY = 4095;

    MessageText() { mText[0] = '\0'; }

    MessageText& operator<<(std::string_view text);
    MessageText& operator<<(const char* text) { return *this << std::string_view(text != nullptr ? text : "(null)"); }
    MessageText& operator<<(char character) { return *this << std::string_view(&character, 1); }
    MessageText& operator<<(float value);
    MessageText& operator<<(double value);
    MessageText& operator<<(const MessageText& text) { return *this << text.view(); }

    /// Any string with contiguous characters of type char.
    template <class String>
        requires requires(const String& s)
        {
            {
                s.data()
                } -> std::convertible_to<const char*>;
            s.size();
        }
    MessageText& operator<<(const String& text) { return *this << std::string_view(text.data(), text.size()); }

    template <class Integer>
    requires std::is_integral_v<Integer> MessageText& operator<<(Integer value)
    {
        if constexpr (std::is_signed_v<Integer>)
            return appendSigned(static_cast<int64>(value));
        else
            return appendUnsigned(static_cast<uint64>(value));
    }

    const char* c_str() const { return mText; }
    std::string_view view() const { return {mText, mLength}; }
    size_t size() const { return mLength; }

private:
    MessageText& appendSigned(int64 value);
    MessageText& appendUnsigned(uint64 value);

    size_t mLength = 0;
    char mText[CAPACITY + 1];
};
} // namespace KORV::Common::Debug
