// zeldicom print [--aet AE] [--aec AE] [--copies N] [--film-size ID] [--orientation portrait|landscape]
//                [--format STANDARD\C,R] [--magnification TYPE] [--medium TYPE] [--priority P]
//                [--wait-report] [--identity-lut] HOST PORT IMAGE...
// Basic Grayscale Print: each image rendered to 8 bits, the pages prepared
// as a job folder in a private temporary folder and sent over one
// association, one film per page; progress per page, the printer's status
// and the outcome in words.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/text.h"
#include "print/printjob.h"
#include "print/printsocketex.h"
#include "tools/association_options.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom print [OPTIONS] HOST PORT IMAGE...\n"
                 "Prints grayscale DICOM images on a DICOM printer, one film per image (or C x R per film).\n"
                 "  --aet, -aet CALLING      calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED       called AE title (default ANY-SCP)\n"
                 "  --copies N               number of copies of each film (default 1)\n"
                 "  --film-size ID           8INX10IN, 10INX12IN, 10INX14IN, 11INX14IN, 14INX14IN,\n"
                 "                           14INX17IN (default), 24CMX24CM, 24CMX30CM, A4\n"
                 "  --orientation O          portrait (default) or landscape\n"
                 "  --format STANDARD\\C,R    image display format: C columns, R rows of images a film\n"
                 "  --magnification TYPE     NONE, REPLICATE, BILINEAR, CUBIC (default)\n"
                 "  --medium TYPE            PAPER, CLEAR FILM, BLUE FILM\n"
                 "  --priority P             HIGH, MED, LOW\n"
                 "  --wait-report            wait for the printer's event report after the job\n"
                 "  --identity-lut           create the identity Presentation LUT for the job\n"
                 "  --timeout SECONDS        connect and receive time-out (default 30)\n"
                 "  --trace DIR              write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when every image was printed, 1 otherwise, 2 on wrong arguments.\n");
    return status;
}

// The index of text in a value list (case ignored), -1 when it is not there.
int IndexOf(const std::string& text, const char* (*list)(int))
{
    for (int i = 0; list(i); ++i)
        if (EqualsNoCase(text, std::string(list(i))))
            return i;
    return -1;
}

// STANDARD\C,R: the number of images a film takes, 0 when not that form.
int ImagesPerFilm(const std::string& format)
{
    unsigned columns = 0, rows = 0;
    char tail = 0;
    if (std::sscanf(format.c_str(), "STANDARD\\%u,%u%c", &columns, &rows, &tail) != 2 || columns == 0 || rows == 0 ||
        columns * rows > 64)
        return 0;
    return static_cast<int>(columns * rows);
}

// A private folder for the job's pages, removed with its files.
struct JobFolder {
    std::string path;
    JobFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zeldicom-print-XXXXXX").string();
        if (mkdtemp(pattern.data()))
            path = pattern;
    }
    ~JobFolder()
    {
        std::error_code error;
        if (!path.empty())
            std::filesystem::remove_all(path, error);
    }
};

}

int RunPrint(int argc, char** argv)
{
    PRINT_JOB_SETTINGS settings;
    bool waitReport = false, identityLut = false;
    int perFilm = 1;
    std::vector<char*> rest;
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--wait-report" || arg == "--identity-lut") {
            (arg == "--wait-report" ? waitReport : identityLut) = true;
            continue;
        }
        const bool takesValue = arg == "--copies" || arg == "--film-size" || arg == "--orientation" ||
                                arg == "--format" || arg == "--magnification" || arg == "--medium" ||
                                arg == "--priority";
        if (!takesValue) {
            rest.push_back(argv[i]);
            continue;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "zeldicom print: %s needs a value\n", arg.c_str());
            return 2;
        }
        const std::string value = argv[++i];
        CDicomFilmBox& box = settings.FilmBox;
        int index = 0;
        if (arg == "--copies") {
            char* end = nullptr;
            long copies = std::strtol(value.c_str(), &end, 10);
            index = *end == '\0' && copies >= 1 && copies <= 99 ? (box.nCopies = static_cast<int>(copies)) : -1;
        } else if (arg == "--film-size") {
            index = box.nFilmSize = IndexOf(value, CDicomFilmBox::FilmSizeText);
        } else if (arg == "--orientation") {
            index = box.nFilmOrientation = IndexOf(value, CDicomFilmBox::OrientationText);
        } else if (arg == "--magnification") {
            index = box.nMagnificationType = IndexOf(value, CDicomFilmBox::MagnificationText);
        } else if (arg == "--medium") {
            index = settings.nMedium = IndexOf(value, CDicomPrintSocket::MediumText);
        } else if (arg == "--priority") {
            index = settings.nPriority = IndexOf(value, CDicomPrintSocket::PriorityText);
        } else {
            perFilm = ImagesPerFilm(value);
            box.sImageDisplayFormat = AsciiToWide(value);
            index = perFilm > 0 ? 0 : -1;
        }
        if (index < 0) {
            std::fprintf(stderr, "zeldicom print: '%s' is not a value of %s\n", value.c_str(), arg.c_str());
            return 2;
        }
    }
    AssociationOptions options;
    int status = ReadAssociationOptions("print", static_cast<int>(rest.size()), rest.data(), 3, 100000, Usage, options);
    if (status >= 0)
        return status;

    // Every image rendered before anything is sent; a refused one is named.
    std::vector<PRINT_IMAGE> images;
    std::vector<std::string> names;
    bool refused = false;
    for (size_t i = 2; i < options.operands.size(); ++i) {
        PRINT_IMAGE image;
        std::string reason;
        if (!RenderPrintImage(Utf8ToUtf16(options.operands[i]), image, reason)) {
            std::fprintf(stderr, "zeldicom print: %s: %s\n", options.operands[i].c_str(), reason.c_str());
            refused = true;
            continue;
        }
        images.push_back(std::move(image));
        names.push_back(options.operands[i]);
    }
    if (images.empty())
        return 1;

    JobFolder folder;
    if (folder.path.empty()) {
        std::fprintf(stderr, "zeldicom print: cannot make a temporary folder\n");
        return 1;
    }
    const std::u16string jobFolder = Utf8ToUtf16(folder.path);
    std::string reason;
    if (identityLut && !WriteIdentityPresentationLut(jobFolder, settings.sLutInstanceUID, reason)) {
        std::fprintf(stderr, "zeldicom print: %s\n", reason.c_str());
        return 1;
    }
    const int pages = static_cast<int>((images.size() + perFilm - 1) / perFilm);
    for (int page = 0; page < pages; ++page) {
        std::vector<const PRINT_IMAGE*> onPage;
        for (size_t i = size_t(page) * perFilm; i < images.size() && onPage.size() < size_t(perFilm); ++i)
            onPage.push_back(&images[i]);
        if (!WritePrintPage(jobFolder, page, settings, onPage, reason)) {
            std::fprintf(stderr, "zeldicom print: %s\n", reason.c_str());
            return 1;
        }
    }

    uint32_t result = 2000;
    PRINT_WINDOW window = [&](uint32_t, uint32_t, PRINT_NOTIFICATION* note) {
        CDicomPrintSocketEx* socket = note->pSocket;
        if (note->nCode == kPrintPageCode) {
            const size_t first = size_t(note->nPage - 1) * perFilm;
            std::printf("film %u/%d: %s%s\n", note->nPage, pages, names[first].c_str(),
                        std::min(names.size(), first + perFilm) - first > 1 ? " ..." : "");
            std::fflush(stdout);
            return;
        }
        result = note->nResult;
        const PRINTER_STATUS& printer = socket->GetPrinterStatus();
        if (printer.szStatus[0])
            std::printf("printer status: %s%s%s%s\n", printer.szStatus, printer.szStatusInfo[0] ? " (" : "",
                        printer.szStatusInfo, printer.szStatusInfo[0] ? ")" : "");
        for (const std::string& warning : socket->GetWarnings())
            std::printf("warning: %s\n", warning.c_str());
        if (note->nResult != 0)
            std::fprintf(stderr, "zeldicom print: %s:%s: %s\n", options.operands[0].c_str(),
                         options.operands[1].c_str(), socket->GetErrorText().c_str());
    };
    auto* socket = new CDicomPrintSocketEx(&window, jobFolder, pages);
    socket->SetConnectionData(options.operands[0], options.port, options.called, options.calling);
    socket->SetTimeout(static_cast<int>(options.timeout * 1000));
    socket->SetWaitForEventReport(waitReport);
    // The job runs on a worker thread, as a host runs it.
    std::thread worker(CDicomPrintSocketEx::ThreadProc, socket);
    worker.join();
    if (result == 0)
        std::printf("printed %d film%s of %zu image%s\n", pages, pages == 1 ? "" : "s", images.size(),
                    images.size() == 1 ? "" : "s");
    if (!FinishOutput("print"))
        return 1;
    return result == 0 && !refused ? 0 : 1;
}
