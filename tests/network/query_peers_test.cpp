// `zeldicom find`, `move` and `get` against DCMTK's dcmqrscp holding a
// small database of pydicom's samples, with a storescp as move destination,
// all on free loopback ports in a temporary folder: every query gives the
// same matches as findscu in each of the three uncompressed transfer
// syntaxes, a move delivers the study's instances, a get writes them as
// dcmqrscp holds them, and failures are worded.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "support/dicomwriter.h"
#include "network/peer_process.h"
#include "support/cli.h"

namespace fs = std::filesystem;

namespace {

const char kCtStudy[] = "1.3.6.1.4.1.5962.1.2.1.20040119072730.12322";
const char* const kHeld[] = {"CT_small.dcm", "MR_small.dcm", "rtplan.dcm"};

// dcmqrscp over a database of three samples, and a storescp "MOVEDEST";
// "MOVESELF" on selfPort is left for `move --receive`.
struct QueryPeers {
    QueryPeers()
        : folder(testsupport::ScratchPath("qr")), port(FreePort()), movePort(FreePort()), selfPort(FreePort()),
          qr((Prepare(), std::vector<std::string>{"dcmqrscp", "-c", folder + "/qr.cfg"}), folder + "/qrrun"),
          dest({"storescp", "-aet", "MOVEDEST", "+xa", "-od", folder + "/moved", std::to_string(movePort)},
               folder + "/destrun")
    {
        up = WaitForEcho(qr, "QRSCP", port) && WaitForEcho(dest, "MOVEDEST", movePort);
    }
    ~QueryPeers() { fs::remove_all(folder); }
    void Prepare()
    {
        fs::create_directories(folder + "/db");
        fs::create_directories(folder + "/moved");
        fs::create_directories(folder + "/qrrun");
        fs::create_directories(folder + "/destrun");
        std::string index = "dcmqridx " + folder + "/db";
        for (const char* name : kHeld) {
            fs::copy_file(testsupport::PydicomDataDir() + "/test_files/" + name, folder + "/db/" + name);
            index += " " + folder + "/db/" + name;
        }
        testsupport::RunShell(index);
        std::ofstream(folder + "/qr.cfg") << "NetworkTCPPort = " << port << "\nMaxPDUSize = 16384\nMaxAssociations = 4\n"
                                          << "HostTable BEGIN\nmovedest = (MOVEDEST, 127.0.0.1, " << movePort
                                          << ")\nmoveself = (MOVESELF, 127.0.0.1, " << selfPort
                                          << ")\nHostTable END\nVendorTable BEGIN\nVendorTable END\nAETable BEGIN\n"
                                          << "QRSCP " << folder << "/db RW (200, 1024mb) ANY\nAETable END\n";
    }
    std::string folder;
    uint16_t port, movePort, selfPort;
    PeerProcess qr, dest;
    bool up = false;
};

// "(gggg,eeee) VR [value]" somewhere in a line, as "GGGG,EEEE VR [value]".
std::optional<std::string> ElementLine(const std::string& line)
{
    for (size_t at = line.find('('); at != std::string::npos; at = line.find('(', at + 1)) {
        if (line.size() < at + 16 || line[at + 5] != ',' || line[at + 10] != ')' || line[at + 11] != ' ' ||
            !std::isupper(uint8_t(line[at + 12])) || !std::isupper(uint8_t(line[at + 13])) ||
            line.compare(at + 14, 2, " [") != 0)
            continue;
        std::string tag = line.substr(at + 1, 9);
        if (!std::all_of(tag.begin(), tag.end(), [](char c) { return c == ',' || std::isxdigit(uint8_t(c)); }))
            continue;
        const size_t close = line.find(']', at + 16);
        if (close == std::string::npos)
            continue;
        std::string value = line.substr(at + 16, close - at - 16);
        value.erase(value.find_last_not_of(' ') + 1);
        std::transform(tag.begin(), tag.end(), tag.begin(), ::toupper);
        return tag + " " + line.substr(at + 12, 2) + " [" + value + "]";
    }
    return std::nullopt;
}

// The matches of a text listing as sorted sets of "(gggg,eeee) VR [value]"
// lines (upper-case tags, values without trailing blanks or the zero byte
// that findscu shows of a UID's padding); a match starts at each line that holds `separator`.
std::vector<std::vector<std::string>> Matches(const std::string& listing, const std::string& separator)
{
    std::vector<std::vector<std::string>> matches;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        line.erase(std::remove(line.begin(), line.end(), '\0'), line.end());
        if (line.find(separator) != std::string::npos)
            matches.emplace_back();
        else if (auto element = ElementLine(line); element && !matches.empty())
            matches.back().push_back(*element);
    }
    for (auto& match : matches)
        std::sort(match.begin(), match.end());
    std::sort(matches.begin(), matches.end());
    return matches;
}

}

TEST(QueryPeers, FindGivesFindscusMatchesAndMoveDeliversTheStudy)
{
    QueryPeers peers;
    ASSERT_TRUE(peers.up) << "dcmqrscp or storescp did not answer C-ECHO";
    const std::string port = std::to_string(peers.port);
    const struct {
        const char* model;  // find's --model; findscu's -P / -S
        const char* level;
        std::vector<std::string> keys;
        size_t expected;
    } queries[] = {
        {"patient", "PATIENT", {"PatientName", "PatientID", "PatientBirthDate"}, 3},
        {"patient", "PATIENT", {"PatientName=Compressed*", "PatientID"}, 2},
        {"study", "STUDY", {"PatientName", "StudyInstanceUID", "StudyDate", "AccessionNumber", "StudyID"}, 3},
        {"study", "STUDY", {"StudyDate=20040101-20041231", "StudyInstanceUID"}, 2},
        {"study", "SERIES", {std::string("StudyInstanceUID=") + kCtStudy, "SeriesInstanceUID", "Modality", "0020,0011"}, 1},
    };
    for (const auto& query : queries) {
        std::vector<std::string> findscu{"findscu", "-aec", "QRSCP", query.model[0] == 'p' ? "-P" : "-S", "-k",
                                         std::string("QueryRetrieveLevel=") + query.level};
        for (const std::string& key : query.keys)
            findscu.insert(findscu.end(), {"-k", key});
        std::string command;
        for (const std::string& arg : findscu)
            command += "'" + arg + "' ";
        auto [status, reference] = testsupport::RunShell(command + "127.0.0.1 " + port);
        ASSERT_EQ(status, 0) << reference;
        auto expected = Matches(reference, "Find Response:");
        ASSERT_EQ(expected.size(), query.expected) << reference;
        for (const auto& match : expected)
            ASSERT_FALSE(match.empty()) << "no element line read from findscu's listing:\n" << reference;
        for (const char* syntax : {"-xi", "-xe", "-xb"}) {
            SCOPED_TRACE(command + syntax);
            std::vector<std::string> args{"find", "-aec", "QRSCP", "--model", query.model, "--level", query.level, syntax};
            for (const std::string& key : query.keys)
                args.insert(args.end(), {"-k", key});
            args.insert(args.end(), {"127.0.0.1", port});
            CliResult run = RunCli(args);
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(Matches(run.out, "# match"), expected) << run.out;
            EXPECT_NE(run.out.find(std::to_string(query.expected) + " match"), std::string::npos);
            EXPECT_NE(run.out.find("final status 0x0000: Success"), std::string::npos) << run.out;
        }
    }

    // The same matches as DICOM JSON: one object per match, the values as findscu shows them.
    CliResult json = RunCli({"find", "-aec", "QRSCP", "--json", "-k", "PatientName", "-k", "StudyInstanceUID",
                             "127.0.0.1", port});
    EXPECT_EQ(json.status, 0) << json.err;
    std::ofstream(peers.folder + "/matches.json") << json.out;
    auto [parsed, count] = testsupport::RunShell("/usr/bin/python3 -c \"import json; print(len(json.load(open('" +
                                                 peers.folder + "/matches.json'))))\"");
    EXPECT_EQ(parsed, 0) << count;
    EXPECT_EQ(count, "3\n") << json.out;
    EXPECT_NE(json.out.find(std::string("\"0020000D\": {\"vr\": \"UI\", \"Value\": [\"") + kCtStudy + "\"]}"),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.err.find("3 matches, final status 0x0000: Success"), std::string::npos) << json.err;

    // C-CANCEL after the first of the three studies (findscu --cancel 1):
    // one match reported. dcmqrscp may have sent all three before the
    // C-CANCEL-RQ reaches it, so its final status is Cancel or Success (the
    // scripted peer in AssociationEnd pins the Cancel case).
    CliResult cancelled = RunCli({"find", "-aec", "QRSCP", "--cancel", "1", "-k", "StudyInstanceUID", "127.0.0.1", port});
    EXPECT_EQ(Matches(cancelled.out, "# match").size(), 1u) << cancelled.out;
    const bool byCancel = cancelled.out.find("1 match, final status 0xFE00: Cancel") != std::string::npos;
    EXPECT_TRUE(byCancel || cancelled.out.find("1 match, final status 0x0000") != std::string::npos) << cancelled.out;
    EXPECT_EQ(cancelled.status, byCancel ? 1 : 0) << cancelled.err;

    // C-MOVE of the CT study: its one instance reaches the destination.
    CliResult move = RunCli({"move", "-aec", "QRSCP", "--dest", "MOVEDEST", "-k",
                             std::string("StudyInstanceUID=") + kCtStudy, "127.0.0.1", port});
    EXPECT_EQ(move.status, 0) << move.err;
    EXPECT_NE(move.out.find("final: 0 remaining, 1 completed, 0 failed, 0 warning"), std::string::npos) << move.out;
    std::vector<std::string> moved;
    for (const auto& entry : fs::directory_iterator(peers.folder + "/moved"))
        moved.push_back(entry.path().filename().string());
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved[0], "CT.1.3.6.1.4.1.5962.1.1.1.1.1.20040119072730.12322");

    // Failures in words: an unknown destination, an unknown called AE, a refused model.
    CliResult unknownDest = RunCli({"move", "-aec", "QRSCP", "--dest", "NOWHERE", "-k",
                                    std::string("StudyInstanceUID=") + kCtStudy, "127.0.0.1", port});
    EXPECT_EQ(unknownDest.status, 1);
    EXPECT_NE(unknownDest.out.find("final status 0xA801: Refused: Move Destination unknown"), std::string::npos)
        << unknownDest.out;
    CliResult unknownAe = RunCli({"find", "-aec", "NOBODY", "-k", "PatientName", "127.0.0.1", port});
    EXPECT_EQ(unknownAe.status, 1);
    EXPECT_NE(unknownAe.err.find("association: association rejected"), std::string::npos) << unknownAe.err;
    EXPECT_NE(unknownAe.err.find("called AE title not recognised"), std::string::npos) << unknownAe.err;
    CliResult badKey = RunCli({"find", "-aec", "QRSCP", "-k", "NoSuchKeyword", "127.0.0.1", port});
    EXPECT_EQ(badKey.status, 2);
    EXPECT_NE(badKey.err.find("'NoSuchKeyword' is neither a keyword nor a tag"), std::string::npos) << badKey.err;
}

// The move's destination is the command itself (as movescu +P): the study's
// instance arrives in the folder equal to the one sent, and the command
// ends with the final response.
TEST(QueryPeers, MoveReceivesIntoAFolder)
{
    QueryPeers peers;
    ASSERT_TRUE(peers.up) << "dcmqrscp or storescp did not answer C-ECHO";
    const std::string received = peers.folder + "/received";
    fs::create_directories(received);
    CliResult move = RunCli({"move", "-aec", "QRSCP", "--dest", "MOVESELF", "--receive", received, "--port",
                             std::to_string(peers.selfPort), "-k", std::string("StudyInstanceUID=") + kCtStudy,
                             "127.0.0.1", std::to_string(peers.port)});
    EXPECT_EQ(move.status, 0) << move.err;
    EXPECT_NE(move.out.find("final: 0 remaining, 1 completed, 0 failed, 0 warning"), std::string::npos) << move.out;
    EXPECT_NE(move.out.find(": CT Image Storage from QRSCP, "), std::string::npos) << move.out;
    EXPECT_EQ(CompareReceived(peers.folder, received, "same", {peers.folder + "/db/CT_small.dcm"}), Same(1));
}

TEST(QueryPeers, GetWritesTheStudiesAsDcmqrscpHoldsThem)
{
    QueryPeers peers;
    ASSERT_TRUE(peers.up) << "dcmqrscp or storescp did not answer C-ECHO";
    const std::string port = std::to_string(peers.port);
    // The three studies by a list of UIDs (PS3.4 C.2.2.2.2), and one patient in the patient root model.
    const struct {
        const char* model;
        const char* level;
        std::string key;
        std::vector<std::string> held;
    } gets[] = {
        {"study", "STUDY",
         std::string("StudyInstanceUID=1.22.333.4.555555.6.7777777777777777777777777777\\") + kCtStudy +
             "\\1.3.6.1.4.1.5962.1.2.4.20040826185059.5457",
         {"CT_small.dcm", "MR_small.dcm", "rtplan.dcm"}},
        {"patient", "PATIENT", "PatientID=1CT1", {"CT_small.dcm"}},
    };
    for (const auto& [model, level, key, held] : gets) {
        SCOPED_TRACE(model);
        const std::string into = peers.folder + "/got-" + model, n = std::to_string(held.size());
        fs::create_directories(into);
        CliResult get = RunCli({"get", "-aec", "QRSCP", "--model", model, "--level", level, "-k", key, "--dir", into,
                                "127.0.0.1", port});
        EXPECT_EQ(get.status, 0) << get.err;
        // A pending response per sub-operation, then the final one.
        EXPECT_EQ(Lines(get.out).size(), held.size() + 3) << get.out;
        EXPECT_NE(get.out.find("final: 0 remaining, " + n + " completed, 0 failed, 0 warning\nfinal status 0x0000: "
                               "Success: sub-operations complete, no failures\n" + n),
                  std::string::npos)
            << get.out;
        std::string heldPaths;
        for (const std::string& name : held)
            heldPaths += " " + peers.folder + "/db/" + name;
        auto [status, compared] = testsupport::RunShell(
            "/usr/bin/python3 " ZELDICOM_SOURCE_DIR "/tests/network/same_instances.py " + into + heldPaths);
        EXPECT_EQ(compared, n + " same\n");
        EXPECT_EQ(status, 0);
    }
}
