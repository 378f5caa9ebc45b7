// zeldicom dicomdir create|add|list: DICOMDIR files of a folder of DICOM
// files (a file-set, PS3.10 8), built and read through CDicomDirEx.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/directoryrecords.h"
#include "dicomdir/dicomdirex.h"
#include "dicomdir/dicomdirindex.h"
#include "dicomdir/fileid.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/options.h"

using namespace zeldicom;
namespace fs = std::filesystem;

namespace {
constexpr char kMediaStorageDirectory[] = "1.2.840.10008.1.3.10";

int Fail(const std::string& message)
{
    std::fprintf(stderr, "zeldicom dicomdir: %s\n", message.c_str());
    return 1;
}

void Note(const std::string& message)
{
    std::fprintf(stderr, "zeldicom dicomdir: %s\n", message.c_str());
}

// One instance to add: its file ID and what Add reads from it.
struct Entry {
    std::u16string fileId;
    std::unique_ptr<CDicomItem> source;
    std::u16string patient, study, series;
};

bool HasPart10Prefix(const std::string& path)
{
    char bytes[132] = {};
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    size_t got = std::fread(bytes, 1, sizeof bytes, file);
    std::fclose(file);
    return got == sizeof bytes && std::memcmp(bytes + 128, "DICM", 4) == 0;
}

// Reads a file for the directory; null (with a note) when it is not a DICOM
// instance that a directory can reference.
std::unique_ptr<CDicomItem> ReadInstance(const std::string& path, const std::string& shown)
{
    CDicomItem root(u"Root");
    if (!root.LoadObject(Utf8ToUtf16(path), true)) {
        Note(shown + ": skipped, not a DICOM file (" + root.GetLastError().GetText() + ")");
        return nullptr;
    }
    auto* header = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Header")));
    std::u16string sopClass, sopInstance;
    if (header) {
        header->GetTagValue(0x0002, 0x0002, sopClass);
        header->GetTagValue(0x0002, 0x0003, sopInstance);
    }
    if (Trim(sopClass) == AsciiToWide(kMediaStorageDirectory)) {
        Note(shown + ": skipped, a directory file itself");
        return nullptr;
    }
    // PS3.10 7.1: a file of a file-set is a Part 10 file, preamble and "DICM" first.
    if (!root.GetChildItem(std::u16string(u"Header")) || !HasPart10Prefix(path)) {
        Note(shown + ": skipped, not a DICOM Part 10 file (no preamble and \"DICM\" prefix)");
        return nullptr;
    }
    if (Trim(sopInstance).empty()) {
        Note(shown + ": skipped, no SOP Instance UID in its meta information");
        return nullptr;
    }
    return std::unique_ptr<CDicomItem>(CDicomDirEx::CreateRecordSource(&root));
}

bool MakeEntry(Entry& entry, std::unique_ptr<CDicomItem> source, const std::u16string& fileId)
{
    if (!source)
        return false;
    auto* data = static_cast<CDicomItem*>(source->GetChildItem(std::u16string(u"Data")));
    entry.fileId = fileId;
    entry.patient = DirIndex::PatientKey(data);
    entry.study = DirIndex::TextKey(data, 0x0020, 0x000D);
    entry.series = DirIndex::TextKey(data, 0x0020, 0x000E);
    entry.source = std::move(source);
    return true;
}

// Instances of one patient, study and series together (in the order each
// was first met, files in path order within), so that each record added to
// the end of the directory follows its own parent.
void GroupByHierarchy(std::vector<Entry>& entries)
{
    std::map<std::u16string, size_t> patients, studies, series;
    struct Rank {
        size_t patient, study, series, index;
    };
    std::vector<Rank> ranks;
    for (size_t i = 0; i < entries.size(); ++i) {
        const Entry& e = entries[i];
        size_t p = patients.emplace(e.patient, patients.size()).first->second;
        size_t s = studies.emplace(e.patient + u'\n' + e.study, studies.size()).first->second;
        size_t r = series.emplace(e.patient + u'\n' + e.study + u'\n' + e.series, series.size()).first->second;
        ranks.push_back({p, s, r, i});
    }
    std::stable_sort(ranks.begin(), ranks.end(), [](const Rank& a, const Rank& b) {
        return std::tie(a.patient, a.study, a.series) < std::tie(b.patient, b.study, b.series);
    });
    std::vector<Entry> sorted;
    sorted.reserve(entries.size());
    for (const Rank& rank : ranks)
        sorted.push_back(std::move(entries[rank.index]));
    entries.swap(sorted);
}

// Adds the entries in their order; a refused one is named with the reason.
size_t AddEntries(CDicomDirEx& dir, std::vector<Entry>& entries)
{
    size_t added = 0;
    for (Entry& entry : entries) {
        if (dir.Add(entry.fileId, entry.source.get()))
            ++added;
        else
            Note(Utf16ToUtf8(entry.fileId) + ": skipped, " + dir.GetLastError().GetText());
    }
    return added;
}

// Writes the directory beside its final path, then renames it into place:
// an existing DICOMDIR is replaced only by a complete one.
bool SaveDirectory(CDicomDirEx& dir, const std::string& path)
{
    std::string temporary = path + ".tmp";
    if (!dir.m_pRoot->SaveToFile(Utf8ToUtf16(temporary))) {
        std::remove(temporary.c_str());
        return false;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

int RunCreate(int argc, char** argv)
{
    OptionReader reader("dicomdir create", "DIR",
                        "Scans DIR for DICOM files and writes DIR/DICOMDIR. A file whose path is not a DICOM file\n"
                        "ID (at most 8 components of 1 to 8 characters A-Z, 0-9, _) is skipped.");
    std::string copyTo;
    reader.Text("--copy", "OUTDIR", "write the file-set to OUTDIR under generated names, with its DICOMDIR", copyTo);
    reader.Example("zeldicom dicomdir create --copy /media/cd study/");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    std::string folder = reader.Operands()[0];
    if (std::string fault = CheckFolder(folder); !fault.empty())
        return reader.BadArgument("DIR: " + fault);
    std::error_code error;
    std::vector<fs::path> files;
    for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::recursive_directory_iterator();
         it.increment(error))
        if (it->is_regular_file(error))
            files.push_back(it->path());
    if (error)
        return Fail(folder + ": " + error.message());
    std::sort(files.begin(), files.end());

    fs::path base(folder);
    if (!copyTo.empty()) {
        fs::create_directories(fs::path(copyTo) / "DICOM", error);
        if (error)
            return Fail(copyTo + ": " + error.message());
    }
    std::vector<Entry> entries;
    size_t skipped = 0;
    for (const fs::path& file : files) {
        std::string relative = file.lexically_relative(base).generic_string();
        if (relative == "DICOMDIR" || relative == "DICOMDIR.tmp")
            continue;
        Entry entry;
        std::unique_ptr<CDicomItem> source = ReadInstance(file.string(), relative);
        if (!source) {
            ++skipped;
            continue;
        }
        if (!copyTo.empty()) {
            char name[16];
            std::snprintf(name, sizeof name, "I%07zu", entries.size() + 1);
            fs::copy_file(file, fs::path(copyTo) / "DICOM" / name, fs::copy_options::overwrite_existing, error);
            if (error)
                return Fail(relative + ": not copied to " + copyTo + ": " + error.message());
            relative = std::string("DICOM/") + name;
        } else if (!IsConformantFileId(relative)) {
            Note(relative + ": skipped, its path is not a DICOM file ID (at most 8 components of 1 to 8 "
                            "characters A-Z, 0-9, _; --copy writes the file-set under conformant names)");
            ++skipped;
            continue;
        }
        MakeEntry(entry, std::move(source), RelativePathToFileId(relative));
        entries.push_back(std::move(entry));
    }
    // PS3.10 8.6: a DICOMDIR references the file-set's files; with none
    // there is nothing to describe.
    if (entries.empty())
        return Fail(folder + ": no DICOM file found below it; no DICOMDIR written");
    GroupByHierarchy(entries);
    CDicomDirEx dir;
    if (!dir.Init())
        return Fail("cannot build a directory");
    size_t added = AddEntries(dir, entries);
    if (added == 0)
        return Fail(folder + ": no DICOM file can be referenced; no DICOMDIR written");
    skipped += entries.size() - added;
    std::string target = ((copyTo.empty() ? base : fs::path(copyTo)) / "DICOMDIR").string();
    if (!SaveDirectory(dir, target))
        return Fail(target + ": cannot be written");
    std::fprintf(stdout, "%s: %zu instances, %zu files skipped\n", target.c_str(), added, skipped);
    return FinishOutput("dicomdir") ? 0 : 1;
}

int RunAdd(int argc, char** argv)
{
    OptionReader reader("dicomdir add", "DICOMDIR FILE...",
                        "Adds the files (inside the DICOMDIR's folder) and rewrites the DICOMDIR safely.");
    reader.Example("zeldicom dicomdir add cd/DICOMDIR cd/NEW/IM1");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const std::vector<std::string>& operands = reader.Operands();
    std::string path = operands[0];
    CDicomDirEx dir;
    if (!dir.Load(Utf8ToUtf16(path)) || !dir.m_pRecords)
        return Fail(path + ": not a DICOMDIR that can be read");
    fs::path base = fs::absolute(fs::path(path)).parent_path();
    std::vector<Entry> entries;
    int failures = 0;
    for (size_t i = 1; i < operands.size(); ++i) {
        const char* file = operands[i].c_str();
        std::string relative = fs::absolute(file).lexically_normal().lexically_relative(base).generic_string();
        if (!IsConformantFileId(relative)) {
            Note(std::string(file) + ": not added, not a DICOM file ID below " + base.string() +
                 " (at most 8 components of 1 to 8 characters A-Z, 0-9, _)");
            ++failures;
            continue;
        }
        Entry entry;
        if (!MakeEntry(entry, ReadInstance(file, file), RelativePathToFileId(relative))) {
            ++failures;
            continue;
        }
        entries.push_back(std::move(entry));
    }
    GroupByHierarchy(entries);
    size_t added = AddEntries(dir, entries);
    failures += static_cast<int>(entries.size() - added);
    if (!SaveDirectory(dir, path))
        return Fail(path + ": cannot be rewritten (left as it was)");
    std::fprintf(stdout, "%s: %zu instances added\n", path.c_str(), added);
    return FinishOutput("dicomdir") && failures == 0 ? 0 : 1;
}

// --- list

std::string Text(const CDicomItem* record, int group, int element)
{
    return Utf16ToUtf8(DirIndex::TextKey(record, group, element));
}

void AppendJsonString(std::string& out, const std::string& text)
{
    out += '"';
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
}

struct Listing {
    std::vector<CDicomItem*> records;
    std::vector<std::vector<size_t>> children;  // by record; the roots are the last entry
};

const struct {
    int element;
    int group;
    const char* keyword;
} kKeys[] = {{0x0020, 0x0010, "PatientID"},
             {0x000D, 0x0020, "StudyInstanceUID"},
             {0x000E, 0x0020, "SeriesInstanceUID"},
             {0x1511, 0x0004, "ReferencedSOPInstanceUIDInFile"}};

std::string FileOf(const CDicomItem* record, bool& present)
{
    present = record->GetTagItem(0x0004, 0x1500) != nullptr;
    std::u16string value;
    record->GetTagValue(0x0004, 0x1500, value);
    std::string file = Utf16ToUtf8(Trim(value));
    std::replace(file.begin(), file.end(), '\\', '/');
    return file;
}

void ListJson(const Listing& listing, size_t node, std::string& out)
{
    bool first = true;
    out += '[';
    for (size_t child : listing.children[node]) {
        if (!first)
            out += ',';
        first = false;
        const CDicomItem* record = listing.records[child];
        out += "{\"type\":";
        AppendJsonString(out, Text(record, 0x0004, 0x1430));
        for (const auto& key : kKeys) {
            if (!record->GetTagItem(key.group, key.element))
                continue;
            out += ",\"";
            out += key.keyword;
            out += "\":";
            AppendJsonString(out, Text(record, key.group, key.element));
        }
        bool hasFile = false;
        std::string file = FileOf(record, hasFile);
        if (hasFile) {
            out += ",\"file\":";
            AppendJsonString(out, file);
        }
        out += ",\"children\":";
        ListJson(listing, child, out);
        out += '}';
    }
    out += ']';
}

void ListText(const Listing& listing, size_t node, int depth, std::string& out)
{
    for (size_t child : listing.children[node]) {
        const CDicomItem* record = listing.records[child];
        out.append(static_cast<size_t>(depth) * 2, ' ');
        out += Text(record, 0x0004, 0x1430);
        for (const auto& key : kKeys)
            if (record->GetTagItem(key.group, key.element))
                out += " " + std::string(key.keyword) + "=" + Text(record, key.group, key.element);
        bool hasFile = false;
        std::string file = FileOf(record, hasFile);
        if (hasFile)
            out += " file=" + file;
        out += '\n';
        ListText(listing, child, depth + 1, out);
    }
}

int RunList(int argc, char** argv)
{
    OptionReader reader("dicomdir list", "DICOMDIR", "Shows the patient/study/series/instance hierarchy.");
    bool json = false;
    reader.Flag("--json", "an array of the root records, each with \"type\", its keys, \"file\" and \"children\"",
                json);
    reader.Example("zeldicom dicomdir list --json cd/DICOMDIR");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const char* path = reader.Operands()[0].c_str();
    CDicomDirEx dir;
    if (!dir.Load(Utf8ToUtf16(path)) || !dir.m_pData)
        return Fail(std::string(path) + ": cannot be read as a DICOM file");
    if (!dir.m_pRecords)
        return Fail(std::string(path) + ": no Directory Record Sequence (0004,1220): not a DICOMDIR");
    Listing listing;
    listing.records = DirectoryRecords(*dir.m_pData);
    std::vector<int> parents = DirectoryRecordParents(listing.records);
    size_t roots = listing.records.size();
    listing.children.resize(roots + 1);
    size_t outside = 0;
    for (size_t i = 0; i < roots; ++i) {
        if (parents[i] == kUnlinkedRecord)
            ++outside;
        else
            listing.children[parents[i] == kRootRecord ? roots : static_cast<size_t>(parents[i])].push_back(i);
    }
    std::string out;
    if (json) {
        ListJson(listing, roots, out);
        out += '\n';
    } else {
        ListText(listing, roots, 0, out);
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    if (outside)
        Note(std::string(path) + ": " + std::to_string(outside) + " records outside the hierarchy (no link reaches them)");
    return FinishOutput("dicomdir") ? 0 : 1;
}
}

int RunDicomDir(int argc, char** argv)
{
    if (CDicomInfoStatics::GetDicomRoot().empty())
        CDicomInfoStatics::SetDicomRoot(kToolImplementationClassUid);
    return RunSubcommand("dicomdir", {{"create", RunCreate}, {"add", RunAdd}, {"list", RunList}}, argc, argv);
}
