// Round trips of pydicom's sample files through `zeldicom convert`, checked
// by the peers: DCMTK's dcmdump must read every output without a complaint
// that the source did not already cause, and pydicom must see the same data
// set (its JSON Model) in source and output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/text.h"
#include "tools/dump_run.h"

namespace {
const char* const kDcmdump = "/usr/bin/dcmdump";
const char* const kPython = "/usr/bin/python3";

struct Listed {
    const char* file;  // below pydicom's data directory
    const char* why;
};

// Rewrites that are expected to differ from their source, and why. Every
// other loadable file comes back byte for byte.
const Listed kRewrittenDifferently[] = {
    {"test_files/693_J2KI.dcm", "the source's group lengths (0008,0000), (0028,0000), (7FE0,0000) are wrong"},
    {"charset_files/chrJapMulti.dcm", "the source's group length (0010,0000) is wrong"},
    {"charset_files/chrKoreanMulti.dcm", "the source's group lengths (0008,0000), (0010,0000) are wrong"},
    {"test_files/SC_rgb_jpeg.dcm",
     "the meta information names JPEG but the data set is implicit VR: the loader records implicit VR"},
    {"test_files/UN_sequence.dcm", "an explicit UN of undefined length holding implicit items is written as SQ"},
    {"test_files/dicomdirtests/DICOMDIR-nooffset", "the last record's item length reaches past its sequence"},
    {"test_files/dicomdirtests/DICOMDIR-nopatient", "the directory offsets are recalculated for the records"},
    {"test_files/dicomdirtests/DICOMDIR-reordered", "the directory offsets are recalculated for the records"},
};

// Files whose pydicom JSON changes, with the tags that change.
const std::map<std::string, std::string> kJsonChanges = {
    {"test_files/693_J2KI.dcm", "00080000,00280000,7FE00000"},
    {"charset_files/chrJapMulti.dcm", "00100000"},
    {"charset_files/chrKoreanMulti.dcm", "00080000,00100000"},
    // The records are linked in the order in which they stand.
    {"test_files/dicomdirtests/DICOMDIR-nopatient", "00041220"},
    {"test_files/dicomdirtests/DICOMDIR-reordered", "00041200,00041220"},
};
// pydicom cannot turn the source itself into JSON.
const std::set<std::string> kNoJson = {"test_files/badVR.dcm"};

std::string Scratch(const std::string& name)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/zeldicom-h2-corpus-" + std::to_string(getpid()) + "-" + name;
}

std::vector<std::string> CorpusFiles(const std::string& dataDir)
{
    std::vector<std::string> files;
    for (const char* folder : {"test_files", "charset_files", "palettes"}) {
        std::error_code error;
        for (auto it = std::filesystem::recursive_directory_iterator(dataDir + "/" + folder, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            if (it->is_regular_file())
                files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// dcmdump's warning and error lines, with the file's path taken out.
std::set<std::string> Complaints(const CliResult& result, const std::string& path)
{
    std::set<std::string> lines;
    for (std::string line : Lines(result.err)) {
        if (line.rfind("W:", 0) != 0 && line.rfind("E:", 0) != 0)
            continue;
        size_t at = line.find(path);
        if (at != std::string::npos)
            line.erase(at, path.size());
        lines.insert(line);
    }
    return lines;
}

std::u16string TransferSyntaxOf(const std::string& path)
{
    CDicomItem root(u"Object");
    if (!root.LoadObject(Utf8ToUtf16(path)))
        return {};
    std::u16string syntax;
    if (auto* header = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Header"))))
        header->GetTagValue(0x0002, 0x0010, syntax);
    return Trim(syntax);
}

class ConvertCorpus : public ::testing::Test {
protected:
    void SetUp() override
    {
        dataDir = parsefix::PydicomDataDir();
        if (dataDir.empty())
            GTEST_SKIP() << "pydicom's sample files are not installed";
        haveDcmdump = access(kDcmdump, X_OK) == 0;
    }
    std::string Relative(const std::string& path) const { return path.substr(dataDir.size() + 1); }

    std::string dataDir;
    bool haveDcmdump = false;
};
}

TEST_F(ConvertCorpus, RewritesAreReadCleanlyAndKeepTheirBytesAndJson)
{
    std::map<std::string, std::string> listed;
    for (const Listed& entry : kRewrittenDifferently)
        listed[entry.file] = entry.why;
    std::string pairsPath = Scratch("pairs.txt");
    std::string pairs;
    std::vector<std::string> outputs;
    int converted = 0, identical = 0;
    for (const std::string& source : CorpusFiles(dataDir)) {
        std::string name = Relative(source);
        std::string output = Scratch(std::to_string(outputs.size()) + ".dcm");
        CliResult result = RunCli({"convert", source, output});
        if (result.status != 0) {
            // Only files that the library refuses to load are not converted.
            CDicomItem root(u"Object");
            EXPECT_FALSE(root.LoadObject(Utf8ToUtf16(source))) << name << ": " << result.err;
            EXPECT_EQ(result.status, 1) << name;
            continue;
        }
        ++converted;
        outputs.push_back(output);
        pairs += source + "\t" + output + "\n";

        bool same = ReadText(source) == ReadText(output);
        identical += same;
        if (listed.count(name))
            EXPECT_FALSE(same) << name << " was listed as rewritten differently: " << listed[name];
        else
            EXPECT_TRUE(same) << name << " did not come back byte for byte";

        if (haveDcmdump) {
            CliResult before = RunCli({source}, kDcmdump);
            CliResult after = RunCli({output}, kDcmdump);
            EXPECT_EQ(after.status, 0) << name << ": " << after.err;
            std::set<std::string> known = Complaints(before, source);
            for (const std::string& line : Complaints(after, output))
                EXPECT_TRUE(known.count(line)) << name << ": dcmdump complains about the output: " << line;
        }
    }
    EXPECT_GE(converted, 150);
    EXPECT_GE(identical, converted - static_cast<int>(std::size(kRewrittenDifferently)));

    // pydicom's view of source and output, one answer line per pair.
    if (access(kPython, X_OK) == 0) {
        ASSERT_TRUE(WriteBytes(pairsPath, parsefix::text(pairs)));
        std::string script = std::string(ZELDICOM_SOURCE_DIR) + "/tests/tools/convert_json_compare.py";
        CliResult compared = RunCli({script, pairsPath}, kPython);
        ASSERT_EQ(compared.status, 0) << compared.err;
        int answered = 0;
        for (const std::string& line : Lines(compared.out)) {
            std::u16string wide = Utf8ToUtf16(line);
            std::string verdict = Utf16ToUtf8(GetField(wide, u'\t', 0));
            std::string name = Relative(Utf16ToUtf8(GetField(wide, u'\t', 1)));
            std::string detail = Utf16ToUtf8(GetField(wide, u'\t', 2));
            ++answered;
            if (kNoJson.count(name)) {
                EXPECT_EQ(verdict, "error") << name;
            } else if (kJsonChanges.count(name)) {
                EXPECT_EQ(verdict, "differs") << name;
                EXPECT_EQ(detail, kJsonChanges.at(name)) << name;
            } else {
                EXPECT_EQ(verdict, "same") << name << ": " << detail;
            }
        }
        EXPECT_EQ(answered, converted);
    }
    for (const std::string& output : outputs)
        unlink(output.c_str());
    unlink(pairsPath.c_str());
}

TEST_F(ConvertCorpus, ImplicitFilesSurviveExplicitAndBack)
{
    std::string plain = Scratch("plain.dcm"), explicitCopy = Scratch("explicit.dcm"), back = Scratch("back.dcm");
    int roundTrips = 0;
    for (const std::string& source : CorpusFiles(dataDir)) {
        if (TransferSyntaxOf(source) != u"1.2.840.10008.1.2")
            continue;
        std::string name = Relative(source);
        ASSERT_EQ(RunCli({"convert", source, plain}).status, 0) << name;
        CliResult toExplicit = RunCli({"convert", "--explicit", source, explicitCopy});
        ASSERT_EQ(toExplicit.status, 0) << name << ": " << toExplicit.err;
        EXPECT_EQ(TransferSyntaxOf(explicitCopy), u"1.2.840.10008.1.2.1") << name;
        if (haveDcmdump) {
            CliResult dumped = RunCli({explicitCopy}, kDcmdump);
            EXPECT_EQ(dumped.status, 0) << name << ": " << dumped.err;
            EXPECT_EQ(dumped.err.find("E:"), std::string::npos) << name << ": " << dumped.err;
        }
        ASSERT_EQ(RunCli({"convert", "--implicit", explicitCopy, back}).status, 0) << name;
        EXPECT_EQ(ReadText(back), ReadText(plain)) << name << " changed on its way through explicit VR";
        ++roundTrips;
    }
    EXPECT_GE(roundTrips, 8);
    for (const std::string& path : {plain, explicitCopy, back})
        unlink(path.c_str());
}
