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
    OptionReader reader("print", "HOST PORT IMAGE...",
                        "Prints grayscale DICOM images on a DICOM printer, one film per image (or C x R per film).");
    PRINT_JOB_SETTINGS settings;
    CDicomFilmBox& box = settings.FilmBox;
    bool waitReport = false, identityLut = false;
    int perFilm = 1;
    double copies = 1;
    reader.Number("--copies", "N", "number of copies of each film (default 1)", 1, 99, copies, true);
    // The value lists of the film box and the film session, as the printer knows them.
    const struct {
        const char* names;
        const char* value;
        const char* help;
        const char* (*list)(int);
        int* target;
    } kChoices[] = {
        {"--film-size", "ID", "8INX10IN, 10INX12IN, 10INX14IN, 11INX14IN, 14INX14IN, 14INX17IN (default), 24CMX24CM, "
                              "24CMX30CM, A4", CDicomFilmBox::FilmSizeText, &box.nFilmSize},
        {"--orientation", "O", "portrait (default) or landscape", CDicomFilmBox::OrientationText, &box.nFilmOrientation},
        {"--magnification", "TYPE", "NONE, REPLICATE, BILINEAR, CUBIC (default)", CDicomFilmBox::MagnificationText,
         &box.nMagnificationType},
        {"--medium", "TYPE", "PAPER, CLEAR FILM, BLUE FILM", CDicomPrintSocket::MediumText, &settings.nMedium},
        {"--priority", "P", "HIGH, MED, LOW", CDicomPrintSocket::PriorityText, &settings.nPriority},
    };
    for (const auto& choice : kChoices)
        reader.Add(choice.names, choice.value, choice.help, [&choice](const std::string& value) {
            int index = IndexOf(value, choice.list);
            if (index < 0)
                return "'" + value + "' is not one of " + choice.help;
            *choice.target = index;
            return std::string();
        });
    reader.Add("--format", "STANDARD\\C,R", "image display format: C columns, R rows of images a film",
               [&](const std::string& value) {
                   perFilm = ImagesPerFilm(value);
                   box.sImageDisplayFormat = AsciiToWide(value);
                   return perFilm > 0 ? std::string() : "'" + value + "' is not STANDARD\\C,R (at most 64 images)";
               });
    reader.Flag("--wait-report", "wait for the printer's event report after the job", waitReport);
    reader.Flag("--identity-lut", "create the identity Presentation LUT for the job", identityLut);
    AssociationOptions options;
    AddAssociationOptions(reader, options);
    reader.Example("zeldicom print -aec PRINTSCP --format STANDARD\\2,2 --film-size A4 localhost 10005 ct.dcm mr.dcm");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    box.nCopies = static_cast<int>(copies);

    // Every image rendered before anything is sent; a refused one is named.
    std::vector<PRINT_IMAGE> images;
    std::vector<std::string> names;
    bool refused = false;
    for (size_t i = 0; i < options.operands.size(); ++i) {
        PRINT_IMAGE image;
        std::string reason;
        if (!RenderPrintImage(Utf8ToUtf16(options.operands[i]), image, reason)) {
            reader.Failure(options.operands[i] + ": " + reason);
            refused = true;
            continue;
        }
        images.push_back(std::move(image));
        names.push_back(options.operands[i]);
    }
    if (images.empty())
        return 1;

    JobFolder folder;
    if (folder.path.empty())
        return reader.Failure("cannot make a temporary folder");
    const std::u16string jobFolder = Utf8ToUtf16(folder.path);
    std::string reason;
    if (identityLut && !WriteIdentityPresentationLut(jobFolder, settings.sLutInstanceUID, reason))
        return reader.Failure(reason);
    const int pages = static_cast<int>((images.size() + perFilm - 1) / perFilm);
    for (int page = 0; page < pages; ++page) {
        std::vector<const PRINT_IMAGE*> onPage;
        for (size_t i = size_t(page) * perFilm; i < images.size() && onPage.size() < size_t(perFilm); ++i)
            onPage.push_back(&images[i]);
        if (!WritePrintPage(jobFolder, page, settings, onPage, reason))
            return reader.Failure(reason);
    }

    uint32_t result = 2000;
    PRINT_WINDOW window = [&](uint32_t, uint32_t, PRINT_NOTIFICATION* note) {
        CDicomPrintSocketEx* socket = note->pSocket;
        if (note->nCode == kPrintPageCode) {
            if (options.Quiet())
                return;
            const size_t first = size_t(note->nPage - 1) * perFilm;
            std::printf("film %u/%d: %s%s\n", note->nPage, pages, names[first].c_str(),
                        std::min(names.size(), first + perFilm) - first > 1 ? " ..." : "");
            std::fflush(stdout);
            return;
        }
        result = note->nResult;
        const PRINTER_STATUS& printer = socket->GetPrinterStatus();
        if (printer.szStatus[0] && !options.Quiet())
            std::printf("printer status: %s%s%s%s\n", printer.szStatus, printer.szStatusInfo[0] ? " (" : "",
                        printer.szStatusInfo, printer.szStatusInfo[0] ? ")" : "");
        for (const std::string& warning : socket->GetWarnings())
            if (!options.Quiet())
                std::printf("warning: %s\n", warning.c_str());
        if (note->nResult != 0)
            reader.Failure(options.Peer() + ": " + socket->GetErrorText());
    };
    auto* socket = new CDicomPrintSocketEx(&window, jobFolder, pages);
    socket->SetConnectionData(options.host, options.port, options.called, options.calling);
    ApplyTimeouts(options, *socket);
    options.Verbose("Requesting association with %s at %s as %s; %d film%s", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str(), pages, pages == 1 ? "" : "s");
    socket->SetWaitForEventReport(waitReport);
    // The job runs on a worker thread, as a host runs it.
    std::thread worker(CDicomPrintSocketEx::ThreadProc, socket);
    worker.join();
    if (result == 0 && !options.Quiet())
        std::printf("printed %d film%s of %zu image%s\n", pages, pages == 1 ? "" : "s", images.size(),
                    images.size() == 1 ? "" : "s");
    if (!FinishOutput("print"))
        return 1;
    return result == 0 && !refused ? 0 : 1;
}
