#pragma once
// Small library-wide helpers: the Implementation Version Name written into
// new objects, and the character set label used when none is given.
#include <cstdint>
#include <map>
#include <string>

class CDicomItem;
class CDicomTag;

// Wide texts keyed by CDicomTag objects: by the pointer, not by the numbers
// (two objects with equal numbers are two keys). The table does not own its
// keys; CDicomTools::CleanDicomTable deletes them.
typedef std::map<CDicomTag*, std::u16string> CDicomTagTable;

// Static helpers only: the class has no instances.
class CDicomTools {
public:
    CDicomTools(const CDicomTools&) {}
    CDicomTools& operator=(const CDicomTools&) { return *this; }
    virtual ~CDicomTools() = default;

    // "major_minor_rev" of the library, with one blank appended when the
    // length is odd so the SH value needs no further padding.
    static std::u16string GetVqImplementationVersionName();
    static std::u16string GetDefaultISOCharacterset();

    // --- new instances and availability (dicomtools_instance.cpp)
    // Turns a loaded object (root with "Header" and "Data") into a new
    // instance: one new UID as Media Storage and SOP Instance UID, this
    // library as implementation, Image Type DERIVED\SECONDARY followed by
    // the current values from the third on (the image's kind). Stops at the
    // first failure (what was replaced stays); true when all succeeded.
    static bool UpdateTagsWhenInstanceCreation(CDicomItem& root);
    // "ONLINE", "OFFLINE" (the folder is missing, when it is checked) or
    // "UNAVAILABLE" (the file is missing).
    static std::u16string GetInstanceAvailability(bool checkFolder, const std::u16string& folder,
                                                  const std::u16string& fileName);
    // Deletes every key object and empties the table.
    static void CleanDicomTable(CDicomTagTable& table);
    // Each source entry's text into the destination's entry for the same
    // key object (keys are shared, not copied: clean only one table).
    static void CopyDicomTable(const CDicomTagTable& source, CDicomTagTable& destination);

private:
    CDicomTools() = default;
    static bool UpdateHeaderTagsWhenInstanceCreation(CDicomItem* header, const std::u16string& uid);
    static bool UpdateGroup8TagsWhenInstanceCreation(CDicomItem* data, const std::u16string& uid);
};

// An exported plain record that the library itself does not use.
class CTagValueTest {
public:
    CTagValueTest() = default;
    CTagValueTest(const CTagValueTest&) = default;
    CTagValueTest& operator=(const CTagValueTest&) = default;
    virtual ~CTagValueTest() = default;

    int32_t m_nFirst = -1;
    int32_t m_nSecond = -1;
    std::u16string m_sFirst;
    std::u16string m_sSecond;
};

// The module entry: process attach reads the library's version into the
// version statics (false when it cannot be read); detach releases nothing.
// Attach runs by itself at start-up, before any object is built.
extern "C" bool ZelDicomModuleAttach();
extern "C" bool ZelDicomModuleDetach();
