// Character sets on glibc iconv: the defined-term table, single-byte code
// pages as 256-entry tables, multi-byte code pages through iconv, and the
// ISO 2022 code extension technique of PS3.5 6.1.2.5 as a small state machine
// that switches G0/G1 at each escape sequence and decodes each run with iconv.
#include "platform/charset.h"

#include <iconv.h>
#include <mutex>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <vector>

#include "platform/text.h"

using namespace zeldicom;

namespace {

// --- tables

struct CharacterSetRow {
    const char16_t* term;
    int codePage;
};

// PS3.3 C.12.1.1.2: single-byte without extensions, with extensions, and
// multi-byte without extensions.
constexpr CharacterSetRow kCharacterSets[] = {
    {u"ISO_IR 6", 20127},
    {u"ISO_IR 100", 28591},
    {u"ISO_IR 101", 28592},
    {u"ISO_IR 109", 28593},
    {u"ISO_IR 110", 28594},
    {u"ISO_IR 144", 28595},
    {u"ISO_IR 127", 28596},
    {u"ISO_IR 126", 28597},
    {u"ISO_IR 138", 28598},
    {u"ISO_IR 148", 28599},
    {u"ISO_IR 203", 28605},
    {u"ISO_IR 13", 932},
    {u"ISO_IR 166", 874},
    {u"ISO 2022 IR 6", 50006},
    {u"ISO 2022 IR 100", 50100},
    {u"ISO 2022 IR 101", 50101},
    {u"ISO 2022 IR 109", 50109},
    {u"ISO 2022 IR 110", 50110},
    {u"ISO 2022 IR 144", 50144},
    {u"ISO 2022 IR 127", 50127},
    {u"ISO 2022 IR 126", 50126},
    {u"ISO 2022 IR 138", 50138},
    {u"ISO 2022 IR 148", 50148},
    {u"ISO 2022 IR 203", 50203},
    {u"ISO 2022 IR 13", 50013},
    {u"ISO 2022 IR 166", 50166},
    {u"ISO 2022 IR 87", 50087},
    {u"ISO 2022 IR 159", 50159},
    {u"ISO 2022 IR 149", 50149},
    {u"ISO 2022 IR 58", 50058},
    {u"ISO_IR 192", 65001},
    {u"GB18030", 54936},
    {u"GBK", 936},
};

enum class Kind { SingleByte, MultiByte };

struct CodePageRow {
    int codePage;
    const char* iconvName;
    Kind kind;
};

// Every code page a converter exists for; the Windows-125x pages are there
// for hosts whose ANSI code page is not Windows-1252.
constexpr CodePageRow kCodePages[] = {
    {20127, "ASCII", Kind::SingleByte},
    {28591, "ISO-8859-1", Kind::SingleByte},
    {28592, "ISO-8859-2", Kind::SingleByte},
    {28593, "ISO-8859-3", Kind::SingleByte},
    {28594, "ISO-8859-4", Kind::SingleByte},
    {28595, "ISO-8859-5", Kind::SingleByte},
    {28596, "ISO-8859-6", Kind::SingleByte},
    {28597, "ISO-8859-7", Kind::SingleByte},
    {28598, "ISO-8859-8", Kind::SingleByte},
    {28599, "ISO-8859-9", Kind::SingleByte},
    {28605, "ISO-8859-15", Kind::SingleByte},
    {874, "CP874", Kind::SingleByte},
    {1250, "CP1250", Kind::SingleByte},
    {1251, "CP1251", Kind::SingleByte},
    {1252, "CP1252", Kind::SingleByte},
    {1253, "CP1253", Kind::SingleByte},
    {1254, "CP1254", Kind::SingleByte},
    {1255, "CP1255", Kind::SingleByte},
    {1256, "CP1256", Kind::SingleByte},
    {1257, "CP1257", Kind::SingleByte},
    // ISO_IR 13 is JIS X 0201 alone (Romaji and half-width katakana): the
    // single-byte half of Windows-932; its double-byte lead bytes stay undefined.
    {932, "CP932", Kind::SingleByte},
    {936, "GBK", Kind::MultiByte},
    {54936, "GB18030", Kind::MultiByte},
    {65001, "UTF-8", Kind::MultiByte},
};

// The graphic character sets reachable by ISO 2022 escape sequences in DICOM
// (PS3.3 C.12.1.1.2, PS3.5 6.1.2.5). 94x94 sets designated to G0 are sent as
// 7-bit pairs and decoded as EUC (high bit set); those designated to G1 are
// sent with the high bit already set.
enum class Form { Ascii, Katakana, Euc, Euc0212, HighSingle, HighDouble };

struct GraphicSetRow {
    const char* escape;
    bool g1;
    Form form;
    const char* iconvName;  // for HighSingle the code page number lives in singleByteCodePage
    int singleByteCodePage;
};

enum GraphicSet {
    kAscii,
    kJisRoman,
    kKatakana,
    kJisX0208,
    kJisX0212,
    kKsX1001,
    kGb2312,
    kLatin1,
    kLatin2,
    kLatin3,
    kLatin4,
    kCyrillic,
    kArabic,
    kGreek,
    kHebrew,
    kLatin5,
    kLatin9,
    kThai,
    kGraphicSetCount,
    kNoSet = -1
};

constexpr GraphicSetRow kGraphicSets[kGraphicSetCount] = {
    {"\x1b(B", false, Form::Ascii, nullptr, 0},
    {"\x1b(J", false, Form::Ascii, nullptr, 0},  // JIS X 0201 Romaji, read as ASCII like its peers do
    {"\x1b)I", true, Form::Katakana, nullptr, 0},
    {"\x1b$B", false, Form::Euc, "EUC-JP", 0},
    {"\x1b$(D", false, Form::Euc0212, "EUC-JP", 0},
    {"\x1b$)C", true, Form::HighDouble, "EUC-KR", 0},
    {"\x1b$)A", true, Form::HighDouble, "GB2312", 0},
    {"\x1b-A", true, Form::HighSingle, nullptr, 28591},
    {"\x1b-B", true, Form::HighSingle, nullptr, 28592},
    {"\x1b-C", true, Form::HighSingle, nullptr, 28593},
    {"\x1b-D", true, Form::HighSingle, nullptr, 28594},
    {"\x1b-L", true, Form::HighSingle, nullptr, 28595},
    {"\x1b-G", true, Form::HighSingle, nullptr, 28596},
    {"\x1b-F", true, Form::HighSingle, nullptr, 28597},
    {"\x1b-H", true, Form::HighSingle, nullptr, 28598},
    {"\x1b-M", true, Form::HighSingle, nullptr, 28599},
    {"\x1b-b", true, Form::HighSingle, nullptr, 28605},
    {"\x1b-T", true, Form::HighSingle, nullptr, 874},
};

// An ISO 2022 code page: the sets in G0 and G1 when a value (or, after a
// reset, a component or line) starts, and for the CJK terms the double-byte
// set to try first, before any other, when encoding (kanji, hanja and hanzi
// overlap, and JIS X 0208 also holds Greek and Cyrillic letters).
struct Iso2022Row {
    int codePage;
    GraphicSet g0;
    GraphicSet g1;
    GraphicSet preferred;
};

constexpr Iso2022Row kIso2022CodePages[] = {
    {50006, kAscii, kNoSet, kNoSet},
    {50100, kAscii, kLatin1, kNoSet},
    {50101, kAscii, kLatin2, kNoSet},
    {50109, kAscii, kLatin3, kNoSet},
    {50110, kAscii, kLatin4, kNoSet},
    {50144, kAscii, kCyrillic, kNoSet},
    {50127, kAscii, kArabic, kNoSet},
    {50126, kAscii, kGreek, kNoSet},
    {50138, kAscii, kHebrew, kNoSet},
    {50148, kAscii, kLatin5, kNoSet},
    {50203, kAscii, kLatin9, kNoSet},
    {50013, kJisRoman, kKatakana, kJisX0208},
    {50166, kAscii, kThai, kNoSet},
    {50087, kAscii, kNoSet, kJisX0208},
    {50159, kAscii, kNoSet, kJisX0208},
    {50149, kAscii, kKsX1001, kKsX1001},
    {50058, kAscii, kGb2312, kGb2312},
};

// Order in which the encoder looks for a set that holds a character, after
// the first value's own sets: alphabets in their single-byte sets first.
constexpr GraphicSet kEncodeOrder[] = {kLatin1,  kLatin2,   kLatin3,  kLatin4,  kCyrillic, kArabic,
                                       kGreek,   kHebrew,   kLatin5,  kLatin9,  kThai,     kJisX0208,
                                       kJisX0212, kKatakana, kKsX1001, kGb2312};

int g_ansiCodePage = 1252;

const CodePageRow* FindCodePage(int codePage)
{
    for (const auto& row : kCodePages)
        if (row.codePage == codePage)
            return &row;
    return nullptr;
}

const Iso2022Row* FindIso2022(int codePage)
{
    for (const auto& row : kIso2022CodePages)
        if (row.codePage == codePage)
            return &row;
    return nullptr;
}

int Resolve(int codePage)
{
    return codePage == kCodePageAnsi || codePage == kCodePageThreadAnsi ? g_ansiCodePage : codePage;
}

// --- iconv descriptors, one cache per thread (a descriptor carries state)

class IconvCache {
public:
    ~IconvCache()
    {
        for (auto& entry : m_entries)
            iconv_close(entry.cd);
    }
    // A descriptor in its initial state, or nullptr when iconv lacks the pair.
    iconv_t* Get(const char* to, const char* from)
    {
        for (auto& entry : m_entries)
            if (entry.to == to && entry.from == from) {
                iconv(entry.cd, nullptr, nullptr, nullptr, nullptr);
                return &entry.cd;
            }
        iconv_t cd = iconv_open(to, from);
        if (cd == reinterpret_cast<iconv_t>(-1))
            return nullptr;
        m_entries.push_back({to, from, cd});
        return &m_entries.back().cd;
    }

private:
    struct Entry {
        std::string to, from;
        iconv_t cd;
    };
    std::vector<Entry> m_entries;
};

IconvCache& Cache()
{
    thread_local IconvCache cache;
    return cache;
}

void AppendUtf16LE(std::u16string& text, const char* bytes, size_t count)
{
    for (size_t i = 0; i + 1 < count; i += 2)
        text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                      (static_cast<unsigned char>(bytes[i + 1]) << 8));
}

// Decodes bytes of an iconv encoding; an undefined or incomplete sequence
// gives U+FFFD and decoding resumes at the next byte.
bool DecodeIconv(const char* from, const std::string& bytes, std::u16string& text)
{
    iconv_t* cd = Cache().Get("UTF-16LE", from);
    if (!cd)
        return false;
    char* in = const_cast<char*>(bytes.data());
    size_t inLeft = bytes.size();
    char buffer[1024];
    while (inLeft > 0) {
        char* out = buffer;
        size_t outLeft = sizeof(buffer);
        size_t done = iconv(*cd, &in, &inLeft, &out, &outLeft);
        AppendUtf16LE(text, buffer, sizeof(buffer) - outLeft);
        if (done != static_cast<size_t>(-1))
            break;
        if (errno == E2BIG)
            continue;
        // EILSEQ or EINVAL: one byte the encoding does not define here.
        text += u'\xFFFD';
        ++in;
        --inLeft;
        iconv(*cd, nullptr, nullptr, nullptr, nullptr);
    }
    return true;
}

// Encodes wide text to an iconv encoding; false when a character has no
// representation there (or the text holds a lone surrogate).
bool EncodeIconv(const char* to, const std::u16string& text, std::string& bytes)
{
    iconv_t* cd = Cache().Get(to, "UTF-16LE");
    if (!cd)
        return false;
    std::string input;
    input.reserve(text.size() * 2);
    for (char16_t c : text) {
        input += static_cast<char>(c & 0xFF);
        input += static_cast<char>(c >> 8);
    }
    char* in = input.data();
    size_t inLeft = input.size();
    char buffer[1024];
    while (inLeft > 0) {
        char* out = buffer;
        size_t outLeft = sizeof(buffer);
        size_t done = iconv(*cd, &in, &inLeft, &out, &outLeft);
        bytes.append(buffer, sizeof(buffer) - outLeft);
        if (done == static_cast<size_t>(-1) && errno != E2BIG)
            return false;
    }
    // Return a stateful encoding to its initial shift state.
    for (;;) {
        char* out = buffer;
        size_t outLeft = sizeof(buffer);
        size_t done = iconv(*cd, nullptr, nullptr, &out, &outLeft);
        bytes.append(buffer, sizeof(buffer) - outLeft);
        if (done != static_cast<size_t>(-1))
            return true;
        if (errno != E2BIG)
            return false;
    }
}

// --- single-byte code pages as tables, built once for all of them

struct SingleByteTable {
    int codePage;
    std::array<char16_t, 256> chars;  // U+FFFD where the code page defines no character
};

// Windows-1252 bytes 0x80 to 0x9F; the rest of the page is Latin-1.
constexpr char16_t kWindows1252High[32] = {
    u'\x20AC', u'\xFFFD', u'\x201A', u'\x0192', u'\x201E', u'\x2026', u'\x2020', u'\x2021',
    u'\x02C6', u'\x2030', u'\x0160', u'\x2039', u'\x0152', u'\xFFFD', u'\x017D', u'\xFFFD',
    u'\xFFFD', u'\x2018', u'\x2019', u'\x201C', u'\x201D', u'\x2022', u'\x2013', u'\x2014',
    u'\x02DC', u'\x2122', u'\x0161', u'\x203A', u'\x0153', u'\xFFFD', u'\x017E', u'\x0178',
};

// ASCII, Latin-1 (ISO_IR 100, the default character set) and Windows-1252
// (the default ANSI code page) are filled without iconv: loading its
// conversion modules costs a process more than reading a whole image header.
bool BuildTableWithoutIconv(int codePage, SingleByteTable& table)
{
    if (codePage != 20127 && codePage != 28591 && codePage != 1252)
        return false;
    table.codePage = codePage;
    for (int b = 0; b < 256; ++b)
        table.chars[b] = codePage == 20127 && b >= 0x80 ? u'\xFFFD' : static_cast<char16_t>(b);
    if (codePage == 1252)
        for (int b = 0; b < 32; ++b)
            table.chars[0x80 + b] = kWindows1252High[b];
    return true;
}

// The 256 characters of a single-byte code page, asked of iconv once.
bool BuildTable(const CodePageRow& row, SingleByteTable& table)
{
    if (BuildTableWithoutIconv(row.codePage, table))
        return true;
    iconv_t cd = iconv_open("UTF-16LE", row.iconvName);
    if (cd == reinterpret_cast<iconv_t>(-1))
        return false;
    table.codePage = row.codePage;
    for (int b = 0; b < 256; ++b) {
        char in[1] = {static_cast<char>(b)};
        char out[4] = {};
        char* inPtr = in;
        char* outPtr = out;
        size_t inLeft = 1, outLeft = sizeof(out);
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        size_t done = iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft);
        bool single = done != static_cast<size_t>(-1) && sizeof(out) - outLeft == 2;
        table.chars[b] = single ? static_cast<char16_t>(static_cast<unsigned char>(out[0]) |
                                                        (static_cast<unsigned char>(out[1]) << 8))
                                : u'\xFFFD';
    }
    iconv_close(cd);
    return true;
}

// Each table is built on its first use: a process that meets only Latin-1
// and the ANSI code page builds two of them.
const SingleByteTable* FindTable(int codePage)
{
    constexpr size_t kRows = std::size(kCodePages);
    static std::once_flag built[kRows];
    static SingleByteTable tables[kRows];
    static bool valid[kRows];
    for (size_t i = 0; i < kRows; ++i) {
        if (kCodePages[i].codePage != codePage || kCodePages[i].kind != Kind::SingleByte)
            continue;
        std::call_once(built[i], [i] { valid[i] = BuildTable(kCodePages[i], tables[i]); });
        return valid[i] ? &tables[i] : nullptr;
    }
    return nullptr;
}

bool EncodeSingleByte(const SingleByteTable& table, char16_t c, char& byte)
{
    if (c < 0x80 && table.chars[c] == c) {
        byte = static_cast<char>(c);
        return true;
    }
    if (c == u'\xFFFD')
        return false;
    for (int b = 0; b < 256; ++b)
        if (table.chars[b] == c) {
            byte = static_cast<char>(b);
            return true;
        }
    return false;
}

// --- ISO 2022

bool IsResetPoint(unsigned char b)
{
    // PS3.5 6.1.2.5.3: the sets of the first value are active again after a
    // line or page end, other control characters, the value separator, and
    // the "^" and "=" delimiters of a person name.
    return b < 0x20 || b == '\\' || b == '^' || b == '=';
}

class Iso2022Decoder {
public:
    Iso2022Decoder(const Iso2022Row& row, std::u16string& text) : m_row(row), m_text(text) {}

    void Decode(const std::string& bytes)
    {
        m_g0 = m_row.g0;
        m_g1 = m_row.g1;
        const size_t n = bytes.size();
        size_t i = 0;
        while (i < n) {
            auto b = static_cast<unsigned char>(bytes[i]);
            if (b == 0x1B) {
                Flush();
                size_t length = Designate(bytes, i);
                if (length == 0) {
                    m_text += u'\xFFFD';
                    length = 1;
                }
                i += length;
                continue;
            }
            if (b < 0x80) {
                Form form = kGraphicSets[m_g0].form;
                bool pair = (form == Form::Euc || form == Form::Euc0212) && b > 0x20 && b < 0x7F && i + 1 < n &&
                            static_cast<unsigned char>(bytes[i + 1]) > 0x20 &&
                            static_cast<unsigned char>(bytes[i + 1]) < 0x7F;
                if (pair) {
                    StartRun(m_g0);
                    if (form == Form::Euc0212)
                        m_run += '\x8F';
                    m_run += static_cast<char>(b | 0x80);
                    m_run += static_cast<char>(bytes[i + 1] | 0x80);
                    i += 2;
                    continue;
                }
                Flush();
                m_text += static_cast<char16_t>(b);
                if (IsResetPoint(b)) {
                    m_g0 = m_row.g0;
                    m_g1 = m_row.g1;
                }
                ++i;
                continue;
            }
            i += DecodeHigh(bytes, i);
        }
        Flush();
    }

private:
    size_t Designate(const std::string& bytes, size_t at)
    {
        for (int set = 0; set < kGraphicSetCount; ++set) {
            const char* escape = kGraphicSets[set].escape;
            size_t length = std::strlen(escape);
            if (bytes.compare(at, length, escape) == 0) {
                (kGraphicSets[set].g1 ? m_g1 : m_g0) = static_cast<GraphicSet>(set);
                return length;
            }
        }
        return 0;
    }

    size_t DecodeHigh(const std::string& bytes, size_t at)
    {
        auto b = static_cast<unsigned char>(bytes[at]);
        if (m_g1 == kNoSet) {
            Flush();
            m_text += u'\xFFFD';
            return 1;
        }
        const GraphicSetRow& set = kGraphicSets[m_g1];
        if (set.form == Form::HighDouble) {
            if (at + 1 < bytes.size() && static_cast<unsigned char>(bytes[at + 1]) >= 0xA1) {
                StartRun(m_g1);
                m_run.append(bytes, at, 2);
                return 2;
            }
            Flush();
            m_text += u'\xFFFD';
            return 1;
        }
        Flush();
        if (set.form == Form::Katakana) {
            m_text += b >= 0xA1 && b <= 0xDF ? static_cast<char16_t>(0xFF61 + (b - 0xA1)) : u'\xFFFD';
        } else {
            const SingleByteTable* table = FindTable(set.singleByteCodePage);
            m_text += table ? table->chars[b] : u'\xFFFD';
        }
        return 1;
    }

    void StartRun(GraphicSet set)
    {
        if (m_runSet != set)
            Flush();
        m_runSet = set;
    }

    void Flush()
    {
        if (m_runSet != kNoSet && !m_run.empty() && !DecodeIconv(kGraphicSets[m_runSet].iconvName, m_run, m_text))
            m_text.append(m_run.size() / 2, u'\xFFFD');
        m_run.clear();
        m_runSet = kNoSet;
    }

    const Iso2022Row& m_row;
    std::u16string& m_text;
    GraphicSet m_g0 = kAscii;
    GraphicSet m_g1 = kNoSet;
    GraphicSet m_runSet = kNoSet;
    std::string m_run;
};

// The bytes of one character in a graphic set, without escape sequence:
// 7-bit for G0 sets, 8-bit for G1 sets. False when the set lacks it.
bool EncodeInSet(GraphicSet set, const std::u16string& character, std::string& bytes)
{
    const GraphicSetRow& row = kGraphicSets[set];
    bytes.clear();
    switch (row.form) {
    case Form::Ascii:
        return false;
    case Form::Katakana:
        if (character.size() != 1 || character[0] < 0xFF61 || character[0] > 0xFF9F)
            return false;
        bytes += static_cast<char>(0xA1 + (character[0] - 0xFF61));
        return true;
    case Form::HighSingle: {
        const SingleByteTable* table = FindTable(row.singleByteCodePage);
        char byte = 0;
        if (!table || character.size() != 1 || !EncodeSingleByte(*table, character[0], byte) ||
            static_cast<unsigned char>(byte) < 0xA0)
            return false;
        bytes += byte;
        return true;
    }
    case Form::HighDouble: {
        std::string euc;
        if (!EncodeIconv(row.iconvName, character, euc) || euc.size() != 2 ||
            static_cast<unsigned char>(euc[0]) < 0xA1 || static_cast<unsigned char>(euc[1]) < 0xA1)
            return false;
        bytes = euc;
        return true;
    }
    case Form::Euc:
    case Form::Euc0212: {
        std::string euc;
        if (!EncodeIconv(row.iconvName, character, euc))
            return false;
        size_t skip = row.form == Form::Euc0212 ? 1 : 0;
        if (euc.size() != 2 + skip || (skip && static_cast<unsigned char>(euc[0]) != 0x8F))
            return false;
        for (size_t k = skip; k < euc.size(); ++k) {
            if (static_cast<unsigned char>(euc[k]) < 0xA1)
                return false;
            bytes += static_cast<char>(euc[k] & 0x7F);
        }
        return true;
    }
    }
    return false;
}

bool EncodeIso2022(const Iso2022Row& row, const std::u16string& text, std::string& bytes)
{
    // A single-byte G1 set of the first value is in place without escape; a
    // double-byte one is designated before its first character of each
    // value, component or line, as PS3.5 Annex H-K show.
    const GraphicSet startG1 = row.g1 != kNoSet && kGraphicSets[row.g1].form == Form::HighDouble ? kNoSet : row.g1;
    // G0 returns to the value's own first set: ASCII, or JIS X 0201 Romaji
    // (ESC ( J) for ISO 2022 IR 13 (PS3.5 H.3.1).
    const GraphicSet home = row.g0;
    GraphicSet g0 = home;
    GraphicSet g1 = startG1;
    std::string encoded;
    for (size_t i = 0; i < text.size();) {
        size_t width = (text[i] >= 0xD800 && text[i] < 0xDC00 && i + 1 < text.size()) ? 2 : 1;
        std::u16string character = text.substr(i, width);
        i += width;
        if (character[0] < 0x80) {
            if (g0 != home) {
                bytes += kGraphicSets[home].escape;
                g0 = home;
            }
            bytes += static_cast<char>(character[0]);
            if (IsResetPoint(static_cast<unsigned char>(character[0])))
                g1 = startG1;
            continue;
        }
        GraphicSet candidates[2 + std::size(kEncodeOrder)];
        size_t count = 0;
        if (row.g1 != kNoSet)
            candidates[count++] = row.g1;
        if (row.preferred != kNoSet)
            candidates[count++] = row.preferred;
        for (GraphicSet set : kEncodeOrder)
            candidates[count++] = set;
        bool done = false;
        for (size_t k = 0; k < count; ++k) {
            GraphicSet set = candidates[k];
            if (!EncodeInSet(set, character, encoded))
                continue;
            GraphicSet& slot = kGraphicSets[set].g1 ? g1 : g0;
            if (slot != set) {
                bytes += kGraphicSets[set].escape;
                slot = set;
            }
            bytes += encoded;
            done = true;
            break;
        }
        if (!done)
            return false;
    }
    if (g0 != home)
        bytes += kGraphicSets[home].escape;
    return true;
}

std::string WithoutPadding(const std::string& bytes)
{
    size_t end = bytes.size();
    while (end > 0 && (bytes[end - 1] == ' ' || bytes[end - 1] == '\0'))
        --end;
    return bytes.substr(0, end);
}

}

bool zeldicom::SetAnsiCodePage(int codePage)
{
    const CodePageRow* row = FindCodePage(codePage);
    if (!row)
        return false;
    g_ansiCodePage = codePage;
    return true;
}

int zeldicom::GetAnsiCodePage()
{
    return g_ansiCodePage;
}

CDcmCharacterSet2CodePageReader& CDcmCharacterSet2CodePageReader::GetUniqueInstance()
{
    static CDcmCharacterSet2CodePageReader instance;
    return instance;
}

int CDcmCharacterSet2CodePageReader::GetCodePageFromDcmCharacterSet(const std::u16string& characterSet) const
{
    std::u16string term = Trim(characterSet);
    if (term.empty())
        return -1;
    for (const auto& row : kCharacterSets)
        if (term == row.term)
            return row.codePage;
    return -1;
}

bool CStringTools::TranslateFromIsoCharSet2Unicode(const std::string& bytes, std::u16string& text, int codePage)
{
    codePage = Resolve(codePage);
    std::string value = WithoutPadding(bytes);
    text.clear();
    if (const Iso2022Row* iso = FindIso2022(codePage)) {
        Iso2022Decoder(*iso, text).Decode(value);
        return true;
    }
    const CodePageRow* row = FindCodePage(codePage);
    if (!row)
        return false;
    if (row->kind == Kind::SingleByte) {
        const SingleByteTable* table = FindTable(codePage);
        if (!table)
            return false;
        text.reserve(value.size());
        for (char b : value)
            text += table->chars[static_cast<unsigned char>(b)];
        return true;
    }
    // The multi-byte sets DICOM names without code extensions (UTF-8, GB18030,
    // GBK) keep ASCII as their one-byte range, so plain ASCII needs no iconv.
    if (codePage == kCodePageUtf8) {
        text = Utf8ToUtf16(value);
        return true;
    }
    bool ascii = true;
    for (char b : value)
        ascii = ascii && static_cast<unsigned char>(b) < 0x80;
    if (ascii) {
        text.assign(value.begin(), value.end());
        return true;
    }
    return DecodeIconv(row->iconvName, value, text);
}

bool CStringTools::TranslateFromUnicode2IsoCharSet(const std::u16string& text, std::string& bytes, int codePage)
{
    codePage = Resolve(codePage);
    bytes.clear();
    bool done = false;
    if (const Iso2022Row* iso = FindIso2022(codePage)) {
        done = EncodeIso2022(*iso, text, bytes);
    } else if (const CodePageRow* row = FindCodePage(codePage)) {
        if (row->kind == Kind::SingleByte) {
            const SingleByteTable* table = FindTable(codePage);
            done = table != nullptr;
            bytes.reserve(text.size());
            for (size_t i = 0; done && i < text.size(); ++i) {
                char byte = 0;
                done = EncodeSingleByte(*table, text[i], byte);
                bytes += byte;
            }
        } else {
            done = EncodeIconv(row->iconvName, text, bytes);
        }
    }
    if (!done)
        bytes.clear();
    return done;
}
