#pragma once
// Why the last operation of an object failed: a code and a text, kept in the
// object (an element tree for its loads and saves, a socket for its network
// operations) so that a caller can say what went wrong.
#include <string>

class CLastError {
public:
    // Codes: 0 no error; a positive code is a system error number (errno)
    // with the system's text; negative codes are the library's own.
    enum Code : int {
        kNone = 0,
        kNotDicom = -1,          // not a DICOM file or stream
        kMalformed = -2,         // malformed or truncated data
        kUnsupported = -3,       // a valid encoding the library does not handle
        kNotRepresentable = -4,  // text the character set cannot hold
        kInvalidArgument = -5,
        kRefused = -6,           // the operation would destroy data it depends on
    };

    void Clear()
    {
        m_nCode = kNone;
        m_sText.clear();
    }
    void Set(int code, const std::string& text)
    {
        m_nCode = code;
        m_sText = text;
    }
    // A system error: the code and the system's text for it.
    void SetSystem(int errorNumber);

    bool IsSet() const { return m_nCode != kNone; }
    int GetCode() const { return m_nCode; }
    const std::string& GetText() const { return m_sText; }

private:
    int m_nCode = kNone;
    std::string m_sText;
};
