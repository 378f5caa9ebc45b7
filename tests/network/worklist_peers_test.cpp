// `zeldicom worklist` against DCMTK's wlmscpfs and Orthanc's worklist
// plugin, both reading worklist files made with dump2dcm in a temporary
// folder, on free loopback ports: each query gives the matches findscu -W
// gets with the same keys, every element equal, and names in ISO_IR 100
// and ISO_IR 192 read right in text and JSON.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "network/peer_process.h"
#include "network/worklistsocket.h"
#include "support/cli.h"

namespace fs = std::filesystem;

namespace {

// One worklist file: the attributes every provider needs, a step of its own.
std::string Entry(const std::string& charset, const std::string& name, const std::string& id, const std::string& date,
                  const std::string& modality, const std::string& station)
{
    return "(0008,0005) CS [" + charset + "]\n(0008,0050) SH [ACC" + id + "]\n(0008,0090) PN [REFERRING^DOC]\n" +
           "(0010,0010) PN [" + name + "]\n(0010,0020) LO [PID" + id + "]\n(0010,0030) DA [19700101]\n" +
           "(0010,0040) CS [F]\n(0020,000d) UI [1.2.826.0.1.3680043.9999.100." + id + "]\n" +
           "(0032,1032) PN [REQUESTING^DOC]\n(0032,1060) LO [" + modality + " EXAM]\n" +
           "(0040,0100) SQ (Sequence with undefined length)\n  (fffe,e000) na (Item with undefined length)\n" +
           "    (0008,0060) CS [" + modality + "]\n    (0040,0001) AE [" + station + "]\n" +
           "    (0040,0002) DA [" + date + "]\n    (0040,0003) TM [090000]\n" +
           "    (0040,0006) PN [PERFORMING^PHYS]\n    (0040,0007) LO [STEP]\n    (0040,0009) SH [SPS" + id + "]\n" +
           "    (0040,0010) SH [STATION]\n    (0040,0011) SH [ROOM1]\n  (fffe,e00d) na (ItemDelimitationItem)\n" +
           "(fffe,e0dd) na (SequenceDelimitationItem)\n(0040,1001) SH [RP" + id + "]\n(0040,1003) SH [ROUTINE]\n";
}

// The worklist folder: five entries, one named in ISO_IR 100 (Latin-1
// bytes) and one in ISO_IR 192 (UTF-8).
void WriteWorklist(const std::string& folder)
{
    fs::create_directories(folder);
    std::ofstream(folder + "/lockfile");
    const std::string entries[] = {
        Entry("ISO_IR 100", "DOE^JANE", "1", "20261201", "CT", "CT01"),
        Entry("ISO_IR 100", "DOE^JOHN", "2", "20261202", "MR", "MR01"),
        Entry("ISO_IR 100", "ROE^RICHARD", "3", "20261215", "CT", "CT02"),
        Entry("ISO_IR 100", "M\xDCLLER^J\xDCRGEN", "4", "20270110", "US", "US01"),
        Entry("ISO_IR 192", "\xC5\x81UKASZ^\xC5\xBB\xC3\x93\xC5\x81W", "5", "20270111", "MR", "MR01"),
    };
    for (size_t i = 0; i < std::size(entries); ++i) {
        const std::string dump = folder + "/e" + std::to_string(i) + ".dump";
        std::ofstream(dump) << entries[i];
        testsupport::RunShell("dump2dcm -q -g " + dump + " " + folder + "/e" + std::to_string(i) + ".wl");
        fs::remove(dump);
    }
}

// findscu's -k paths of every key of the library's request template.
void TemplateKeys(const CDicomItem* node, const std::string& prefix, std::vector<std::string>& keys)
{
    for (const CXmlItem* group : node->m_children) {
        const int groupNumber = CDicomItem::ParseGroupName(group->m_sName);
        if (groupNumber < 0 || groupNumber == 0xFFFE)
            continue;
        for (const CXmlItem* element : group->m_children) {
            const auto* key = static_cast<const CDicomItem*>(element);
            char tag[16];
            std::snprintf(tag, sizeof tag, "(%04X,%04X)", groupNumber, CDicomItem::ParseElementName(key->m_sName));
            if (key->GetVR() == "SQ")
                TemplateKeys(key->GetTagItem(0xFFFE, 0xE000), prefix + tag + "[0].", keys);
            else
                keys.push_back(prefix + tag);
        }
    }
}

// The objects of a JSON listing, each from a line "{" to a line "}", sorted.
std::vector<std::string> JsonObjects(const std::string& listing)
{
    std::vector<std::string> objects;
    std::string current;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        if (line == "{")
            current.clear();
        if (line == "}" || line == "},")
            objects.push_back(current + "}\n");
        else
            current += line + "\n";
    }
    std::sort(objects.begin(), objects.end());
    return objects;
}

// What findscu -W gets with the template's keys and the given values, as
// `zeldicom dump --json` prints each response it saved.
std::vector<std::string> FindscuMatches(const std::string& aet, uint16_t port,
                                        const std::map<std::string, std::string>& values)
{
    std::unique_ptr<CDicomItem> request(CWorklistSocket::CreateFindRequest());
    std::vector<std::string> keys;
    TemplateKeys(request.get(), "", keys);
    testsupport::ScratchFolder out("findscu-wl");
    std::string command = "cd " + out.path + " && findscu -W -X -aec " + aet;
    for (const std::string& key : keys) {
        auto value = values.find(key);
        command += " -k '" + key + (value != values.end() ? "=" + value->second : "") + "'";
    }
    testsupport::RunShell(command + " 127.0.0.1 " + std::to_string(port));
    std::string listing;
    for (const auto& file : fs::directory_iterator(out.path))
        listing += RunCli({"dump", "--json", file.path().string()}).out;
    return JsonObjects(listing);
}

void CompareWithFindscu(const std::string& aet, uint16_t port)
{
    const struct {
        std::vector<std::string> options;
        std::map<std::string, std::string> findscuValues;
        size_t matches;
    } queries[] = {
        {{}, {}, 5},
        {{"--modality", "MR"}, {{"(0040,0100)[0].(0008,0060)", "MR"}}, 2},
        {{"--date", "20261201-20261231"}, {{"(0040,0100)[0].(0040,0002)", "20261201-20261231"}}, 3},
        {{"--station", "CT01"}, {{"(0040,0100)[0].(0040,0001)", "CT01"}}, 1},
        {{"--patient", "DOE JA"}, {{"(0010,0010)", "DOE^JA*"}}, 1},
        {{"-k", "ScheduledProcedureStepSequence[0].Modality=CT", "-k", "PatientID=PID3"},
         {{"(0040,0100)[0].(0008,0060)", "CT"}, {"(0010,0020)", "PID3"}}, 1},
    };
    for (const auto& query : queries) {
        SCOPED_TRACE(query.options.empty() ? "no filter" : query.options[0] + " " + query.options[1]);
        std::vector<std::string> args{"worklist", "--json", "-aec", aet};
        args.insert(args.end(), query.options.begin(), query.options.end());
        args.insert(args.end(), {"127.0.0.1", std::to_string(port)});
        CliResult run = RunCli(args);
        ASSERT_EQ(run.status, 0) << run.err;
        std::vector<std::string> ours = JsonObjects(run.out);
        EXPECT_EQ(ours.size(), query.matches) << run.out;
        EXPECT_EQ(ours, FindscuMatches(aet, port, query.findscuValues));
    }
    // Text: each match decoded by its own character set.
    CliResult text = RunCli({"worklist", "-aec", aet, "--modality", "US", "127.0.0.1", std::to_string(port)});
    EXPECT_NE(text.out.find("M\xC3\x9CLLER^J\xC3\x9CRGEN | ID PID4 | accession ACC4 | US EXAM | 20270110 090000 | US | US01\n"),
              std::string::npos)
        << text.out;
    text = RunCli({"worklist", "-aec", aet, "--date", "20270111", "127.0.0.1", std::to_string(port)});
    EXPECT_NE(text.out.find("\xC5\x81UKASZ^\xC5\xBB\xC3\x93\xC5\x81W | ID PID5"), std::string::npos) << text.out;
    CliResult json = RunCli({"worklist", "--json", "-aec", aet, "--date", "20270110-", "127.0.0.1", std::to_string(port)});
    EXPECT_NE(json.out.find("{\"Alphabetic\": \"M\xC3\x9CLLER^J\xC3\x9CRGEN\"}"), std::string::npos) << json.out;
    EXPECT_NE(json.out.find("{\"Alphabetic\": \"\xC5\x81UKASZ^\xC5\xBB\xC3\x93\xC5\x81W\"}"), std::string::npos)
        << json.out;
}

}

TEST(WorklistPeers, WlmscpfsGivesFindscusMatches)
{
    testsupport::ScratchFolder folder("wlmscpfs");
    WriteWorklist(folder.path + "/wl/WLMSCP");
    fs::create_directories(folder.path + "/run");
    const uint16_t port = FreePort();
    // -csk: each match carries the Specific Character Set of its file.
    PeerProcess peer({"wlmscpfs", "-csk", "-dfp", folder.path + "/wl", std::to_string(port)}, folder.path + "/run");
    ASSERT_TRUE(WaitForEcho(peer, "WLMSCP", port));
    CompareWithFindscu("WLMSCP", port);
    // Another called title has no worklist folder: the association is rejected, in one line.
    CliResult rejected = RunCli({"worklist", "-aec", "NOSUCH", "127.0.0.1", std::to_string(port)});
    EXPECT_EQ(rejected.status, 1);
    EXPECT_NE(rejected.err.find("zeldicom worklist: 127.0.0.1:" + std::to_string(port) + ": association: "),
              std::string::npos)
        << rejected.err;
}

TEST(WorklistPeers, OrthancWorklistPluginGivesFindscusMatches)
{
    testsupport::ScratchFolder folder("orthanc-wl");
    WriteWorklist(folder.path + "/wl");
    const uint16_t port = FreePort();
    std::ofstream(folder.path + "/orthanc.json") << R"({
  "Name": "ZELDICOM-TEST", "StorageDirectory": ")" << folder.path << R"(/storage",
  "IndexDirectory": ")" << folder.path << R"(/index", "HttpServerEnabled": false,
  "RemoteAccessAllowed": false, "AuthenticationEnabled": false, "DicomServerEnabled": true,
  "DicomAet": "ORTHANC", "DicomPort": )" << port << R"(, "DicomCheckCalledAet": true,
  "DicomAlwaysAllowEcho": true, "DicomAlwaysAllowFindWorklist": true, "SaveJobs": false,
  "DefaultEncoding": "Utf8",
  "Plugins": ["/usr/share/orthanc/plugins/libModalityWorklists.so"],
  "Worklists": {"Enable": true, "Database": ")" << folder.path << R"(/wl"}
})";
    // Orthanc answers in its default encoding: UTF-8 keeps every name whole.
    fs::create_directories(folder.path + "/run");
    PeerProcess orthanc({"Orthanc", folder.path + "/orthanc.json"}, folder.path + "/run");
    ASSERT_TRUE(WaitForEcho(orthanc, "ORTHANC", port));
    CompareWithFindscu("ORTHANC", port);
}
