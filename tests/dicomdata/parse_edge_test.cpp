// Header decoding and runs of elements: the shapes that real streams take
// (implicit private sequences, pixel data VR, delimiters, group filters,
// meta information that lies about the data set encoding).
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include <cstring>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "support/tree.h"
#include "platform/text.h"

using namespace zeldicom;

using namespace testsupport;

namespace {
uint32_t Load(CDicomItem& node, const Bytes& bytes, bool explicitVR, int groupFilter = -1)
{
    return node.LoadTags(bytes.data(), static_cast<int>(bytes.size()), explicitVR, groupFilter);
}
}

TEST(ParseHeaders, LongFormShortFormAndTheLengthQuirk)
{
    // The five long-form VRs, by their letters in stream order.
    for (const char* vr : {"OB", "OW", "SQ", "UN", "UT"})
        EXPECT_EQ(CDicomItem::GetLengthFormatByVR(static_cast<uint16_t>(vr[0] | (vr[1] << 8))), 32) << vr;
    for (const char* vr : {"US", "LO", "BO", "\0\0"})
        EXPECT_EQ(CDicomItem::GetLengthFormatByVR(static_cast<uint16_t>(vr[0] | (vr[1] << 8))), 16) << vr;

    // (4321,1020) written as OB with a 16-bit length: E0 7F 00 00 at offset 8
    // is its value, not a 32-bit length. The same bytes on another tag are a
    // normal long-form header. OF, UC, UR and friends carry a reserved field
    // and a 32-bit length; the element after an empty OF must still be found.
    Bytes quirk = {0x21, 0x43, 0x20, 0x10, 'O', 'B', 0x04, 0x00, 0xE0, 0x7F, 0x00, 0x00};
    Bytes stream = cat({quirk, elem(0x4321, 0x1021, "US", us(7)), elem(0x4321, 0x1022, "OB", Bytes{0xAA, 0xBB}),
                        elem(0x4321, 0x1064, "OF", Bytes{}), elem(0x4321, 0x1070, "UC", "abcd"),
                        elem(0x4321, 0x1080, "CS", "CT")});
    CDicomItem data(u"Data");
    ASSERT_EQ(Load(data, stream, true), stream.size());
    const CDicomItem* odd = data.GetTagItem(0x4321, 0x1020);
    ASSERT_NE(odd, nullptr);
    EXPECT_EQ(odd->GetDataSize(), 4);
    EXPECT_EQ(odd->GetData(), stream.data() + 8);
    for (auto [element, size] : {std::pair{0x1021, 2}, {0x1022, 2}, {0x1064, 0}, {0x1070, 4}, {0x1080, 2}})
        EXPECT_EQ(data.GetTagItem(0x4321, element)->GetDataSize(), size) << element;

    // Items and delimiters have the 8-byte form even in explicit VR.
    TAG_HEADER_EX header{};
    std::memcpy(&header, ielem(0xFFFE, 0xE000, {}, 0x20).data(), 8);
    std::u16string vr = u"x";
    int size = 0;
    uint32_t length = 0;
    ASSERT_TRUE(data.GetTagInfo(&header, true, vr, size, length, 8));
    EXPECT_TRUE(vr.empty());
    EXPECT_EQ(size, 8);
    EXPECT_EQ(length, 0x20u);

    EXPECT_FALSE(CDicomItem::IsExplicitVR(u"1.2.840.10008.1.2"));
    EXPECT_TRUE(CDicomItem::IsExplicitVR(u"1.2.840.10008.1.2.1") && CDicomItem::IsExplicitVR(u""));
    EXPECT_TRUE(CDicomItem::IsBigEndian(u"1.2.840.10008.1.2.2"));
    EXPECT_FALSE(CDicomItem::IsBigEndian(u"1.2.840.10008.1.2.2.1"));
}

TEST(ParseImplicit, PrivateUndefinedLengthIsASequenceAndAmbiguousVRsFollowTheDataSet)
{
    Bytes stream = cat({ielem(0x0029, 0x0010, text("CREATOR ")), ielem(0x0029, 0x1010, {}, kUndefined),
                        undefinedItem(ielem(0x0029, 0x1001, text("ab"))), sequenceEnd(),
                        ielem(0x0029, 0x1011, text("zz"))});
    CDicomItem data(u"Data");
    ASSERT_EQ(Load(data, stream, false), stream.size());
    const CDicomItem* sq = data.GetTagItem(0x0029, 0x1010);
    ASSERT_NE(sq, nullptr);
    EXPECT_EQ(sq->GetVR(), "SQ");
    EXPECT_EQ(sq->GetDataSize(), -1);
    EXPECT_EQ(AttributeOf(sq, u"Size"), u"-1");
    const CDicomItem* items = ChildNode(sq, u"gFFFE");
    const CDicomItem* first = ChildNode(items, u"eE000");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(AttributeOf(first, u"ParentVR"), u"SQ");
    EXPECT_NE(first->GetTagItem(0x0029, 0x1001), nullptr);
    EXPECT_NE(ChildNode(items, u"eE0DD"), nullptr);
    // The element after the sequence belongs to the data set, not the item,
    // and as an implicit private element carries no VR.
    ASSERT_NE(data.GetTagItem(0x0029, 0x1011), nullptr);
    EXPECT_EQ(data.GetTagItem(0x0029, 0x1011)->GetVR(), "");

    auto vrOf = [](const Bytes& stream, const std::function<const CDicomItem*(const CDicomItem&)>& pick) {
        CDicomItem node(u"Data");
        EXPECT_EQ(node.LoadTags(stream.data(), static_cast<int>(stream.size()), false, -1), stream.size());
        const CDicomItem* found = pick(node);
        return found ? found->GetVR() : std::string("missing");
    };
    auto top = [](int g, int e) {
        return [g, e](const CDicomItem& n) -> const CDicomItem* { return n.GetTagItem(g, e); };
    };
    // PS3.5 A.1: implicit VR pixel data is OW whatever Bits Allocated says.
    for (const Bytes& before : {ielem(0x0028, 0x0100, us(16)), ielem(0x0028, 0x0100, us(8)), Bytes{}})
        EXPECT_EQ(vrOf(cat({before, ielem(0x7FE0, 0x0010, Bytes(4, 0x11))}), top(0x7FE0, 0x0010)), "OW");

    // US or SS by the Pixel Representation of the data set or an enclosing
    // one; LUT Data by its descriptor; tags outside the fixed dictionary and
    // private creators take the registry's VR.
    Bytes padding = ielem(0x0028, 0x0120, us(0xF830));
    EXPECT_EQ(vrOf(cat({ielem(0x0028, 0x0103, us(1)), padding}), top(0x0028, 0x0120)), "SS");
    EXPECT_EQ(vrOf(cat({ielem(0x0028, 0x0103, us(0)), padding}), top(0x0028, 0x0120)), "US");
    EXPECT_EQ(vrOf(padding, top(0x0028, 0x0120)), "US");
    EXPECT_EQ(vrOf(ielem(0x0009, 0x0010, text("ACME")), top(0x0009, 0x0010)), "LO");
    EXPECT_EQ(vrOf(ielem(0x300A, 0x0002, text("PLAN")), top(0x300A, 0x0002)), "SH");
    EXPECT_EQ(vrOf(ielem(0x0010, 0x2203, text("F ")), top(0x0010, 0x2203)), "CS");
    EXPECT_EQ(vrOf(ielem(0x0028, 0x1201, Bytes(4, 0)), top(0x0028, 0x1201)), "OW");
    auto lutItem = [](uint16_t entries) {
        return ielem(0x0028, 0x3000, item(cat({ielem(0x0028, 0x3002, cat({us(entries), us(0), us(16)})),
                                               ielem(0x0028, 0x3006, Bytes(4, 0))})));
    };
    auto inLut = [](int element) {
        return [element](const CDicomItem& n) -> const CDicomItem* {
            const CDicomItem* sequence = n.GetTagItem(0x0028, 0x3000);
            const CDicomItem* first = sequence ? sequence->GetTagItem(0xFFFE, 0xE000) : nullptr;
            return first ? first->GetTagItem(0x0028, element) : nullptr;
        };
    };
    EXPECT_EQ(vrOf(cat({ielem(0x0028, 0x0103, us(1)), lutItem(2)}), inLut(0x3006)), "OW");
    EXPECT_EQ(vrOf(lutItem(1), inLut(0x3006)), "US");
    EXPECT_EQ(vrOf(cat({ielem(0x0028, 0x0103, us(1)), lutItem(2)}), inLut(0x3002)), "SS");
}

TEST(ParseSequences, DelimitersItemsAndFragmentsLandWhereTheTreeExpectsThem)
{
    // Undefined-length item in an undefined-length sequence, then a
    // defined-length sequence with a defined-length item.
    Bytes code = elem(0x0008, 0x0100, "SH", "CODE01");
    Bytes stream = cat({elem(0x0008, 0x1032, "SQ", Bytes{}, kUndefined), undefinedItem(code), sequenceEnd(),
                        elem(0x0008, 0x1140, "SQ", item(code)), elem(0x0010, 0x0010, "PN", "Doe^Jo")});
    CDicomItem data(u"Data");
    ASSERT_EQ(Load(data, stream, true), stream.size());

    const CDicomItem* openItems = ChildNode(data.GetTagItem(0x0008, 0x1032), u"gFFFE");
    ASSERT_NE(openItems, nullptr);
    ASSERT_EQ(openItems->GetChildCount(), 2);
    const CDicomItem* item1 = ChildNode(openItems, u"eE000");
    EXPECT_EQ(item1->GetDataSize(), -1);
    // The item delimiter is the item's own last element, in its own gFFFE.
    EXPECT_NE(ChildNode(ChildNode(item1, u"gFFFE"), u"eE00D"), nullptr);
    EXPECT_EQ(item1->m_children.back()->m_sName, u"gFFFE");
    // Bytes consumed by the item: its content plus the 8-byte delimiter.
    EXPECT_EQ(item1->m_nParsedLength, code.size() + 8);

    const CDicomItem* closed = data.GetTagItem(0x0008, 0x1140);
    EXPECT_EQ(closed->GetDataSize(), static_cast<int>(code.size() + 8));
    const CDicomItem* closedItems = ChildNode(closed, u"gFFFE");
    ASSERT_NE(closedItems, nullptr);
    EXPECT_EQ(closedItems->GetChildCount(), 1);
    EXPECT_EQ(ChildNode(closedItems, u"eE000")->GetTagItem(0x0008, 0x0100)->GetDataSize(), 6);
    EXPECT_NE(data.GetTagItem(0x0010, 0x0010), nullptr);

    // Encapsulated pixel data: items are kept as bytes, not parsed.
    Bytes fragment = elem(0x0008, 0x0060, "CS", "CT");  // looks like an element, must stay bytes
    Bytes pixels = cat({elem(0x7FE0, 0x0010, "OB", Bytes{}, kUndefined), item({}), item(fragment), sequenceEnd()});
    CDicomItem image(u"Data");
    ASSERT_EQ(Load(image, pixels, true), pixels.size());
    const CDicomItem* second = ChildNode(ChildNode(image.GetTagItem(0x7FE0, 0x0010), u"gFFFE"), u"eE000", 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(AttributeOf(second, u"ParentVR"), u"OB");
    EXPECT_EQ(second->GetDataSize(), static_cast<int>(fragment.size()));
    EXPECT_EQ(second->GetGroupItem(0x0008), nullptr);
}

TEST(ParseRuns, GroupFilterCountsAndTinyBuffers)
{
    Bytes meta = cat({elem(0x0002, 0x0000, "UL", Bytes{4, 0, 0, 0}), elem(0x0002, 0x0010, "UI", "1.2.840.10008.1.2")});
    Bytes stream = cat({meta, elem(0x0008, 0x0060, "CS", "MR")});
    CDicomItem header(u"Header");
    EXPECT_EQ(Load(header, stream, true, 0x0002), meta.size());
    EXPECT_EQ(header.GetGroupItem(0x0008), nullptr);
    EXPECT_NE(header.GetTagItem(0x0002, 0x0010), nullptr);

    Bytes seven(7, 0x08);
    CDicomItem a(u"a"), b(u"b");
    EXPECT_EQ(a.LoadTags(seven.data(), 7, true, -1), 0xFFFFFFFFu);
    EXPECT_EQ(b.LoadTags(seven.data(), 0, true, -1), 0u);
    EXPECT_EQ(b.GetChildCount(), 0);

    // A tag that occurs twice gives two element nodes.
    Bytes twice = cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x0008, 0x0060, "CS", "MR")});
    CDicomItem c(u"c");
    ASSERT_EQ(Load(c, twice, true), twice.size());
    EXPECT_EQ(c.GetTagItemCount(0x0008, 0x0060), 2);

    // Trailing padding ends the run, and the bytes after it are not read.
    Bytes padded = cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0xFFFC, 0xFFFC, "OB", Bytes(4, 0)),
                        elem(0x0010, 0x0010, "PN", "X^YZ")});
    CDicomItem d(u"d");
    EXPECT_EQ(Load(d, padded, true), padded.size() - 12);
    EXPECT_EQ(d.GetGroupItem(0x0010), nullptr);

    // The run's Specific Character Set labels the node.
    Bytes latin = elem(0x0008, 0x0005, "CS", "ISO_IR 192");
    CDicomItem e(u"e");
    ASSERT_EQ(Load(e, latin, true), latin.size());
    EXPECT_EQ(e.m_sCharacterSet, "ISO_IR 192");
}

TEST(ParseFiles, DataSetEncodingIsCheckedAgainstTheFirstElement)
{
    Bytes explicitBody = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0010, 0x0010, "PN", "Doe^Jane")});
    Bytes implicitBody = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), ielem(0x0010, 0x0010, text("Doe^Jane"))});
    Bytes unBody = cat({elem(0x0008, 0x0012, "UN", "20030903"), elem(0x0010, 0x0010, "PN", "Doe^Jane")});
    const struct {
        Bytes image;
        const char16_t* syntax;  // (0002,0010) after loading
        uint16_t element;        // of group 0008 or 0010
        const char* vr;
    } cases[] = {
        // Meta information says implicit, data set is explicit.
        {fileImage("1.2.840.10008.1.2", explicitBody), u"1.2.840.10008.1.2", 0x0010, "PN"},
        // Meta information says explicit, data set is implicit: (0002,0010) is rewritten.
        {fileImage("1.2.840.10008.1.2.1", implicitBody), u"1.2.840.10008.1.2", 0x0010, "PN"},
        // Explicit UN on a standard tag (written by some converters) is not a
        // sign of implicit VR; the element takes the registry's VR.
        {fileImage("1.2.840.10008.1.2.1", unBody), u"1.2.840.10008.1.2.1", 0x0012, "DA"},
        // Implicit meta information is detected too.
        {fileImage("1.2.840.10008.1.2.1", explicitBody, true), u"1.2.840.10008.1.2.1", 0x0010, "PN"},
    };
    for (const auto& c : cases) {
        CDicomItem root(u"root");
        ASSERT_TRUE(root.LoadObject(c.image.data(), static_cast<int>(c.image.size()))) << root.GetLastError().GetText();
        const CDicomItem* data = ChildNode(&root, u"Data");
        std::u16string name, syntax;
        data->GetTagValue(0x0010, 0x0010, name);
        ChildNode(&root, u"Header")->GetTagValue(0x0002, 0x0010, syntax);
        EXPECT_EQ(name, u"Doe^Jane");
        EXPECT_EQ(data->GetTagItem(c.element == 0x0012 ? 0x0008 : 0x0010, c.element)->GetVR(), c.vr);
        EXPECT_EQ(Trim(syntax), c.syntax);
    }
    // The root: Header (preamble + DICM as its value) then Data.
    CDicomItem root(u"root");
    ASSERT_TRUE(root.LoadObject(cases[0].image.data(), static_cast<int>(cases[0].image.size())));
    ASSERT_EQ(root.GetChildCount(), 2);
    EXPECT_EQ(root.GetChildItem(0)->m_sName, u"Header");
    EXPECT_EQ(ChildNode(&root, u"Header")->GetDataSize(), 132);
    EXPECT_EQ(root.GetData(), cases[0].image.data());
}

// What users have beside Part 10 files: bare data sets (a meta information
// is made for them), meta information without a transfer syntax (inferred
// from the data set), and damaged files kept up to where reading stopped
// when asked. (Deflated data sets: every sample of the corpus sweep is
// written deflated and read back by the loader and by pydicom.)
TEST(ParseFiles, BareAndInferredEncodingsLoad)
{
    Bytes body = cat({elem(0x0008, 0x0016, "UI", text(std::string("1.2.840.10008.5.1.4.1.1.7\0", 26))), elem(0x0010, 0x0010, "PN", "DOE^J"),
                      elem(0x300A, 0x00B0, "SQ", item(elem(0x300A, 0x00C0, "IS", "1 ")))});
    Bytes implicitBody = cat({ielem(0x0008, 0x0016, text(std::string("1.2.840.10008.5.1.4.1.1.7\0", 26))), ielem(0x0010, 0x0010, text("DOE^J ")),
                              ielem(0x300A, 0x00B0, item(ielem(0x300A, 0x00C0, text("1 "))))});
    auto nameOf = [](const CDicomItem& root) { return TextOf(ChildNode(&root, u"Data"), 0x0010, 0x0010); };
    const Bytes bare = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), implicitBody});
    const Bytes noSyntax = cat({Bytes(128, 0), text("DICM"), elem(0x0002, 0x0001, "OB", Bytes{0, 1}), implicitBody});
    const std::tuple<Bytes, std::string> cases[] = {
        {bare, "1.2.840.10008.1.2"}, {body, "1.2.840.10008.1.2.1"}, {noSyntax, "1.2.840.10008.1.2"}};
    for (const auto& [image, syntax] : cases) {
        CDicomItem root(u"root");
        ASSERT_TRUE(root.LoadObject(image.data(), static_cast<int>(image.size()))) << syntax << root.GetLastError().GetText();
        EXPECT_EQ(nameOf(root), "DOE^J") << syntax;
        EXPECT_EQ(TextOf(ChildNode(&root, u"Header"), 0x0002, 0x0010), syntax);
        const CDicomItem* beams = ChildNode(&root, u"Data")->GetTagItem(0x300A, 0x00B0);
        ASSERT_NE(beams, nullptr);
        EXPECT_EQ(beams->GetVR(), "SQ");
        EXPECT_NE(beams->GetTagItem(0xFFFE, 0xE000), nullptr) << syntax;
    }
    CDicomItem bareRoot(u"root");
    ASSERT_TRUE(bareRoot.LoadObject(bare.data(), static_cast<int>(bare.size())));
    EXPECT_EQ(TextOf(ChildNode(&bareRoot, u"Header"), 0x0002, 0x0002), "1.2.840.10008.5.1.4.1.1.7");

    // A cut-short file: refused, or kept up to the cut with the place named.
    Bytes cut = fileImage("1.2.840.10008.1.2.1", body);
    cut.resize(cut.size() - 3);
    for (bool keep : {false, true}) {
        CDicomItem root(u"root");
        root.SetKeepPartialLoad(keep);
        EXPECT_FALSE(root.LoadObject(cut.data(), static_cast<int>(cut.size())));
        EXPECT_NE(root.GetLastError().GetText().find("reading stopped at element (300A,00C0), byte offset"), std::string::npos)
            << root.GetLastError().GetText();
        EXPECT_EQ(root.GetChildCount(), keep ? 2 : 0);
        EXPECT_EQ(nameOf(root), keep ? "DOE^J" : "<absent>");
    }
}

TEST(ParseFiles, RefusalsNameTheirReason)
{
    Bytes body = elem(0x0008, 0x0060, "CS", "CT");
    Bytes noDicm = fileImage("1.2.840.10008.1.2.1", body);
    noDicm[130] = 'X';
    const std::pair<Bytes, const char*> cases[] = {
        // Little endian bytes read as big endian: a length that lies.
        {fileImage("1.2.840.10008.1.2.2", body), "reading stopped at element (0800,6000), byte offset"},
        {fileImage("1.2.840.10008.1.2.1.99", body), "deflated data set is damaged"},
        {fileImage("1.2.840.10008.1.2.1.99", Bytes{0x73, 0x04}), "the deflated data set is"},
        {noDicm, "DICM"},
        {Bytes(100, 0), "DICM"},
    };
    for (const auto& [image, reason] : cases) {
        CDicomItem root(u"root");
        EXPECT_FALSE(root.LoadObject(image.data(), static_cast<int>(image.size())));
        EXPECT_NE(root.GetLastError().GetText().find(reason), std::string::npos) << root.GetLastError().GetText();
        EXPECT_EQ(root.GetChildCount(), 0) << "nothing of a refused file stays in the tree";
    }
    // A bare big endian data set is read, its values little endian.
    Bytes bareBigEndian = cat({Bytes{0x00, 0x08, 0x00, 0x05}, text("CS"), Bytes{0x00, 0x0A}, text("ISO_IR 100"),
                               Bytes{0x00, 0x28, 0x00, 0x10}, text("US"), Bytes{0x00, 0x02, 0x01, 0x02}});
    CDicomItem bare(u"root");
    ASSERT_TRUE(bare.LoadObject(bareBigEndian.data(), static_cast<int>(bareBigEndian.size())));
    uint16_t rows = 0;
    EXPECT_TRUE(bare.IsSourceBigEndian() && ChildNode(&bare, u"Data")->GetTagValue(0x0028, 0x0010, rows));
    EXPECT_EQ(rows, 0x0102);
    CDicomItem root(u"root");
    EXPECT_FALSE(root.LoadObject(nullptr, 10));
    EXPECT_FALSE(root.LoadObject(std::u16string(u"/nonexistent/file.dcm")));
    EXPECT_FALSE(root.GetLastError().GetText().empty());
    EXPECT_EQ(root.m_pFileImage, nullptr);
}
