#pragma once
// Raw element headers as they stand in a little-endian stream (PS3.5 7.1).
#include <cstdint>

#pragma pack(push, 1)
// Implicit VR form: 16-bit group, 16-bit element, 32-bit length.
struct TAG_HEADER {
    uint16_t wGroup;
    uint16_t wElement;
    uint32_t nLength;  // 0xFFFFFFFF: undefined length
};

// Either form; which applies depends on the explicit flag and the VR.
struct TAG_HEADER_EX {
    uint16_t wGroup;
    uint16_t wElement;
    union {
        uint32_t nImplicitLength;
        struct {
            char szVR[2];
            union {
                uint16_t wShortLength;
                uint16_t wReserved;
            };
        } explicitForm;
    };
    uint32_t nLongLength;  // explicit VR, long form only
};
#pragma pack(pop)

static_assert(sizeof(TAG_HEADER) == 8, "TAG_HEADER is 8 bytes");
static_assert(sizeof(TAG_HEADER_EX) == 12, "TAG_HEADER_EX is 12 bytes");

constexpr uint32_t kUndefinedLength = 0xFFFFFFFFu;
constexpr uint32_t kWriteFailed = 0xFFFFFFFFu;
