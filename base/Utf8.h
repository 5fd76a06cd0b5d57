// Recognising well-formed UTF-8 (RFC 3629, the table of section 4).
#pragma once

namespace Vorn::Strings {

// Length in bytes of the well-formed sequence at the start of `available` bytes, or 0 when there
// is none. Overlong forms, surrogates and values above U+10FFFF are not well-formed.
inline unsigned int Utf8SequenceLength(const char* text, unsigned int available)
{
    if (available == 0)
        return 0;
    const auto byte = [text](unsigned int index) {
        return static_cast<unsigned char>(text[index]);
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;

    // The second byte's range depends on the lead; all later ones are 80 to BF.
    unsigned int length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0)
            low = 0xA0;
        else if (lead == 0xED)
            high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0)
            low = 0x90;
        else if (lead == 0xF4)
            high = 0x8F;
    } else {
        return 0;
    }
    if (available < length || byte(1) < low || byte(1) > high)
        return 0;
    for (unsigned int index = 2; index < length; ++index)
        if ((byte(index) & 0xC0) != 0x80)
            return 0;
    return length;
}

} // namespace Vorn::Strings
