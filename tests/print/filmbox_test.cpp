// The film box and image box data sets, byte for byte against fixtures
// written with the tests' own element writer; the N-GET attribute list as
// it goes on the wire; the film box response's image box references.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "network/pdu_fixtures.h"
#include "platform/dynbuffer.h"
#include "print/filmbox.h"
#include "print/printsocket.h"
#include "imageinfo/dicominfo.h"

using namespace testsupport;

namespace {

Bytes Of(const CDynBuffer& buffer) { return Bytes(buffer.GetData(), buffer.GetData() + buffer.m_nSize); }
Bytes Padded(const std::string& s, uint8_t pad = ' ')
{
    Bytes out = text(s);
    if (out.size() % 2)
        out.push_back(pad);
    return out;
}
Bytes Group(uint16_t group, const Bytes& body, uint32_t extra = 0)
{
    return cat({ielem(group, 0x0000, pdufix::le(static_cast<uint32_t>(body.size()) + extra, 4)), body});
}

}

TEST(FilmBox, DefaultDataSetNamesEveryAttributeAndTheSession)
{
    CDicomFilmBox box;
    box.sRefFilmSessionSOPClassUID = u"1.2.840.10008.5.1.1.1";
    box.sRefFilmSessionSOPInstanceUID = u"1.2.3.45";
    CDynBuffer buffer;
    ASSERT_TRUE(box.FillFilmBoxAtrb(buffer));
    const Bytes expected = Group(
        0x2010, cat({ielem(0x2010, 0x0010, text("STANDARD\\1,1")), ielem(0x2010, 0x0040, text("PORTRAIT")),
                     ielem(0x2010, 0x0050, Padded("14INX17IN")), ielem(0x2010, 0x0060, Padded("CUBIC")),
                     ielem(0x2010, 0x0100, Padded("BLACK")), ielem(0x2010, 0x0110, Padded("BLACK")),
                     ielem(0x2010, 0x0140, Padded("YES")),
                     ielem(0x2010, 0x0500,
                           item(cat({ielem(0x0008, 0x1150, Padded("1.2.840.10008.5.1.1.1", 0)),
                                     ielem(0x0008, 0x1155, Padded("1.2.3.45", 0))})))}));
    EXPECT_EQ(Of(buffer), expected);

    // An index off its list is refused, not written as something else.
    box.nFilmSize = 9;
    EXPECT_FALSE(box.FillFilmBoxAtrb(buffer));
}

TEST(ImageBox, LengthsCountThePixelsThatFollowTheBuffer)
{
    const struct {
        uint16_t rows, columns, bitsAllocated;
        int photometric;
        uint32_t pixelBytes;
    } cases[] = {
        {512, 512, 8, 2, 262144},
        {512, 512, 12, 2, 262144},  // 12 bits allocated count one byte
        {100, 30, 16, 1, 6000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bitsAllocated);
        CDicomImageBox box;
        box.wRows = c.rows;
        box.wColumns = c.columns;
        box.wBitsAllocated = c.bitsAllocated;
        box.nPhotometric = c.photometric;
        CDynBuffer buffer;
        ASSERT_TRUE(box.FillImageBoxAtrb(buffer));
        EXPECT_EQ(box.nPixelDataLength, c.pixelBytes);
        const Bytes body = cat({ielem(0x0028, 0x0002, us(1)),
                                ielem(0x0028, 0x0004, Padded("MONOCHROME" + std::to_string(c.photometric))),
                                ielem(0x0028, 0x0010, us(c.rows)), ielem(0x0028, 0x0011, us(c.columns)),
                                ielem(0x0028, 0x0034, Padded("1\\1")), ielem(0x0028, 0x0100, us(c.bitsAllocated)),
                                ielem(0x0028, 0x0101, us(8)), ielem(0x0028, 0x0102, us(7)),
                                ielem(0x0028, 0x0103, us(0)), ielem(0x7FE0, 0x0010, {}, c.pixelBytes)});
        const Bytes itemBytes = ielem(0xFFFE, 0xE000, body, static_cast<uint32_t>(body.size()) + c.pixelBytes);
        const Bytes sequence = cat({ielem(0x2020, 0x0110, {}, static_cast<uint32_t>(itemBytes.size()) + c.pixelBytes),
                                    itemBytes});
        EXPECT_EQ(Of(buffer), Group(0x2020, cat({ielem(0x2020, 0x0010, us(1)), sequence}), c.pixelBytes));
    }
}

TEST(FilmBox, ResponseGivesTheImageBoxesInOrder)
{
    auto reference = [](const std::string& instance) {
        return item(cat({ielem(0x0008, 0x1150, Padded("1.2.840.10008.5.1.1.4", 0)),
                         ielem(0x0008, 0x1155, Padded(instance, 0))}));
    };
    const Bytes response = cat({ielem(0x2010, 0x0010, text("STANDARD\\1,2")),
                                ielem(0x2010, 0x0510, cat({reference("1.2.3.1"), reference("1.2.3.2")}))});
    CDicomFilmBox box;
    DICOMINFO::ReadTags(
        response.data(), static_cast<int>(response.size()),
        [](TAG_HEADER* element, void* context) {
            CDicomFilmBox::ReadResponseProc(element, static_cast<CDicomFilmBox*>(context));
        },
        &box);
    ASSERT_EQ(box.aRefImageBoxes.size(), 2u);
    EXPECT_EQ(box.aRefImageBoxes[0].second, u"1.2.3.1");
    EXPECT_EQ(box.sRefImageBoxSOPClassUID, u"1.2.840.10008.5.1.1.4");
    EXPECT_EQ(box.sRefImageBoxSOPInstanceUID, u"1.2.3.2");  // the last item wins
}

TEST(PrintSocket, AsksThePrinterStatusWithTheTwoAttributeTags)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    DICOM_PRINT_PARAM param;
    std::snprintf(param.szFilmSessionUID, sizeof param.szFilmSessionUID, "1.2.3.4");
    CDicomPrintSocket socket(&param);
    socket.Adopt(ends[0]);
    EXPECT_EQ(socket.m_sFilmBoxUID, "1.2.3.4.1");
    ASSERT_EQ(socket.SendGetPrinterStatusCmnd(), 1);
    Bytes sent(512);
    ssize_t got = recv(ends[1], sent.data(), sent.size(), 0);
    ASSERT_GT(got, 0);
    sent.resize(static_cast<size_t>(got));
    const Bytes list = cat({ielem(0x0000, 0x1005, {0x10, 0x21, 0x10, 0x00, 0x10, 0x21, 0x20, 0x00})});
    EXPECT_NE(std::search(sent.begin(), sent.end(), list.begin(), list.end()), sent.end());
    close(ends[1]);
}
