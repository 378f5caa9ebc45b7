// Printing on DCMTK's dcmprscp (a LOCALPRINTER storing every job in its
// database folder), run on a free loopback port with its own configuration:
// each Hardcopy Grayscale image it stores holds exactly our 8-bit rendering
// of its source, each Stored Print the film box we asked for, and its log
// the session, film boxes and Presentation LUT of the job.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <thread>

#include "network/peer_process.h"
#include "platform/text.h"
#include "print/printjob.h"
#include "print/printsocket.h"
#include "support/cli.h"

namespace fs = std::filesystem;
using namespace testsupport;
using zeldicom::Utf8ToUtf16;

namespace {

std::string Config(const std::string& folder, uint16_t port)
{
    return "[[GENERAL]]\n[APPLICATION]\nLogDirectory = " + folder + "/log\n[PRINT]\nSpooler = dcmprscu\n"
           "Server = dcmprscp\nDirectory = " + folder + "/spool\nDeletePrintJobs = false\n[DATABASE]\nDirectory = " +
           folder + "/db\n[LUT]\nDirectory = " + folder + "\n[[COMMUNICATION]]\n[PRINTSCP]\nAetitle = PRINTSCP\n"
           "Hostname = localhost\nPort = " + std::to_string(port) + "\nType = LOCALPRINTER\nMaxPDU = 16384\n"
           "ImplicitOnly = false\nDisableNewVRs = false\nBorderDensity = 150\\20\\BLACK\\WHITE\n"
           "DisplayFormat = 1,1\\1,2\\2,2\\2,3\\3,3\nEmptyImageDensity = 20\\BLACK\\WHITE\n"
           "FilmDestination = MAGAZINE\\PROCESSOR\nFilmSizeID = 8INX10IN\\10INX12IN\\14INX17IN\n"
           "MagnificationType = REPLICATE\\BILINEAR\\CUBIC\\NONE\nMaxDensity = 320\nMinDensity = 20\n"
           "MediumType = PAPER\\CLEAR FILM\\BLUE FILM\nResolutionID = STANDARD\\HIGH\nSmoothingType = NONE\n"
           "Supports12Bit = true\nSupportsDecimateCrop = true\nSupportsImageSize = true\n"
           "SupportsPresentationLUT = true\nSupportsTrim = true\nOmitSOPClassUIDFromCreateResponse = false\n"
           "PresentationLUTMatchRequired = false\nPresentationLUTinFilmSession = false\n";
}

class PrintScp : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (PydicomDataDir().empty())
            GTEST_SKIP() << "pydicom's sample files are not installed";
        folder = ScratchPath("dcmprscp");
        fs::remove_all(folder);
        for (const char* sub : {"/db", "/spool", "/log"})
            fs::create_directories(folder + sub);
        port = FreePort();
        std::ofstream(folder + "/dcmpstat.cfg") << Config(folder, port);
        peer = std::make_unique<PeerProcess>(
            std::vector<std::string>{"dcmprscp", "-d", "-c", folder + "/dcmpstat.cfg", "-p", "PRINTSCP"}, folder);
        ASSERT_TRUE(WaitForEcho(*peer, "PRINTSCP", port));
    }
    std::string Sample(const std::string& name) { return PydicomDataDir() + "/test_files/" + name; }
    // What the printer stored: one line per Hardcopy Grayscale image
    // ("HG photometric hex-pixels") and per Stored Print ("SP format orientation size magnification").
    std::vector<std::string> Stored()
    {
        auto [status, out] = RunShell(
            "/usr/bin/python3 -c \"import pydicom,glob\n"
            "for f in sorted(glob.glob('" + folder + "/db/*_*.dcm')):\n"
            "  d = pydicom.dcmread(f)\n"
            "  if 'FilmBoxContentSequence' in d:\n"
            "    b = d.FilmBoxContentSequence[0]\n"
            "    print('SP', b.ImageDisplayFormat, b.FilmOrientation, b.FilmSizeID, b.MagnificationType)\n"
            "  else:\n"
            "    print('HG', d.PhotometricInterpretation, d.PixelData.hex())\"");
        EXPECT_EQ(status, 0) << out;
        return Lines(out);
    }
    std::string Rendered(const std::string& path)
    {
        PRINT_IMAGE image;
        std::string reason;
        EXPECT_TRUE(RenderPrintImage(Utf8ToUtf16(path), image, reason)) << path << ": " << reason;
        return std::string("HG MONOCHROME") + char('0' + image.nPhotometric) + " " +
               ToHex(std::string(image.aPixels.begin(), image.aPixels.end()));
    }
    // The SOP classes of the requests of one type in dcmprscp's debug log, in order.
    std::vector<std::string> Requests(const std::string& type)
    {
        std::ifstream log(folder + "/peer.log");
        std::vector<std::string> classes;
        bool inRequest = false;
        for (std::string line; std::getline(log, line);) {
            if (line.find("Message Type") != std::string::npos)
                inRequest = line.find(": " + type + " RQ") != std::string::npos;
            else if (inRequest && line.find("SOP Class UID") != std::string::npos) {
                classes.push_back(line.substr(line.rfind(": ") + 2));
                inRequest = false;
            }
        }
        return classes;
    }

    std::string folder;
    uint16_t port = 0;
    std::unique_ptr<PeerProcess> peer;
};

}

TEST_F(PrintScp, EachFilmHoldsTheRenderingOfItsImageAndTheFilmBoxAskedFor)
{
    ScratchFolder work("print-sources");
    // A MONOCHROME1 image goes as it is: the printer inverts it.
    const std::string inverted = work.path + "/mono1.dcm";
    ASSERT_EQ(PydicomRewrite(Sample("MR_small.dcm"), inverted, "ds.PhotometricInterpretation = 'MONOCHROME1'").first, 0);
    // Signed 16 bits without window, 16 bits with one, 8 bits deflated (512 x 512), MONOCHROME1.
    const std::vector<std::string> sources = {Sample("CT_small.dcm"), Sample("MR_small.dcm"), Sample("image_dfl.dcm"),
                                              inverted};
    std::vector<std::string> args = {"print", "--aec", "PRINTSCP", "--film-size", "8INX10IN", "--orientation",
                                     "landscape", "--magnification", "REPLICATE", "127.0.0.1", std::to_string(port)};
    args.insert(args.end(), sources.begin(), sources.end());
    CliResult run = RunCli(args);
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("film 4/4: "), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("printer status: NORMAL"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("printed 4 films of 4 images"), std::string::npos) << run.out;

    std::multiset<std::string> expected, films;
    for (const std::string& source : sources)
        expected.insert(Rendered(source));
    for (const std::string& line : Stored()) {
        if (line.rfind("SP ", 0) == 0)
            EXPECT_EQ(line, "SP STANDARD\\1,1 LANDSCAPE 8INX10IN REPLICATE");
        else
            films.insert(line);
    }
    EXPECT_EQ(films, expected);

    // The rendering itself agrees with DCMTK's (dcmj2pnm: the image's first
    // window, else its min-max window) to one grey level.
    for (const auto& [source, window] : {std::pair{sources[0], "+Wm"}, std::pair{sources[1], "+Wi 1"}}) {
        const std::string pgm = work.path + "/dcmtk.pgm";
        ASSERT_EQ(RunShell("dcmj2pnm " + std::string(window) + " " + source + " " + pgm).first, 0);
        const Bytes file = ReadFile(pgm);
        size_t start = 0;  // behind the three header lines: P5, the size, 255
        for (int lines = 0; lines < 3 && start < file.size(); ++start)
            lines += file[start] == '\n';
        const Bytes theirs(file.begin() + static_cast<long>(start), file.end());
        PRINT_IMAGE ours;
        std::string reason;
        ASSERT_TRUE(RenderPrintImage(Utf8ToUtf16(source), ours, reason));
        ASSERT_EQ(theirs.size(), ours.aPixels.size()) << source;
        int furthest = 0;
        for (size_t i = 0; i < theirs.size(); ++i)
            furthest = std::max(furthest, std::abs(int(theirs[i]) - int(ours.aPixels[i])));
        EXPECT_LE(furthest, 1) << source;
    }
    EXPECT_EQ(Requests("N-CREATE"),
              (std::vector<std::string>{"BasicFilmSessionSOPClass", "BasicFilmBoxSOPClass", "BasicFilmBoxSOPClass",
                                        "BasicFilmBoxSOPClass", "BasicFilmBoxSOPClass"}));
}

TEST_F(PrintScp, OneSessionCarriesTheFilmsAndTheIdentityLut)
{
    const std::string ct = Sample("CT_small.dcm"), mr = Sample("MR_small.dcm");
    CliResult run = RunCli({"print", "--aec", "PRINTSCP", "--identity-lut", "--format", "STANDARD\\1,2", "127.0.0.1",
                            std::to_string(port), ct, mr, ct});
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(Requests("N-CREATE"),
              (std::vector<std::string>{"BasicFilmSessionSOPClass", "PresentationLUTSOPClass", "BasicFilmBoxSOPClass",
                                        "BasicFilmBoxSOPClass"}));
    EXPECT_EQ(Requests("N-DELETE"),
              (std::vector<std::string>{"BasicFilmBoxSOPClass", "BasicFilmBoxSOPClass", "PresentationLUTSOPClass",
                                        "BasicFilmSessionSOPClass"}));
    // Two films: the first of two images, the second of one.
    std::vector<std::string> stored = Stored();
    EXPECT_EQ(std::count_if(stored.begin(), stored.end(), [](const std::string& l) { return l.rfind("SP ", 0) == 0; }),
              2);
    EXPECT_EQ(std::count_if(stored.begin(), stored.end(), [](const std::string& l) { return l.rfind("HG ", 0) == 0; }),
              3);
}

TEST_F(PrintScp, OneImageJobOnAWorkerThreadReportsSuccess)
{
    // The host's side: the pixels in a file of their own, the record on the heap.
    PRINT_IMAGE image;
    std::string reason;
    ASSERT_TRUE(RenderPrintImage(Utf8ToUtf16(Sample("MR_small.dcm")), image, reason)) << reason;
    const std::string pixels = ScratchPath("pixels.raw");
    ASSERT_TRUE(WriteFile(pixels, Bytes(image.aPixels.begin(), image.aPixels.end())));
    auto* param = new DICOM_PRINT_PARAM;
    std::snprintf(param->szHost, sizeof param->szHost, "127.0.0.1");
    param->nPort = port;
    std::snprintf(param->szCalledAETitle, sizeof param->szCalledAETitle, "PRINTSCP");
    std::snprintf(param->szCallingAETitle, sizeof param->szCallingAETitle, "HOST");
    std::snprintf(param->szFilmSessionUID, sizeof param->szFilmSessionUID, "1.2.826.0.1.3680043.9999.7");
    param->FilmBox.nFilmSize = 0;
    param->ImageBox.wRows = image.wRows;
    param->ImageBox.wColumns = image.wColumns;
    param->ImageBox.sPixelFile = Utf8ToUtf16(pixels);
    std::vector<std::pair<uint32_t, uint32_t>> messages;
    param->notify = [&](uint32_t message, uint32_t first, uint32_t second, const CDicomPrintSocket& socket) {
        EXPECT_EQ(message, kPrintMessage);
        EXPECT_STREQ(socket.GetPrinterStatus().szStatus, "NORMAL");
        messages.emplace_back(first, second);
    };
    std::thread worker(CDicomPrintSocket::ThreadProc, param);
    worker.join();
    EXPECT_EQ(messages, (std::vector<std::pair<uint32_t, uint32_t>>{{kPrintJobDone, 0}}));
    EXPECT_FALSE(fs::exists(pixels));  // the job deletes its pixel file
    std::vector<std::string> stored = Stored();
    EXPECT_NE(std::find(stored.begin(), stored.end(), Rendered(Sample("MR_small.dcm"))), stored.end());
    EXPECT_NE(std::find(stored.begin(), stored.end(), "SP STANDARD\\1,1 PORTRAIT 8INX10IN CUBIC"), stored.end());
}
