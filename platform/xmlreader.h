#pragma once
// A small XML reader for the library's own configuration files (the code
// dictionary): elements and their text become a CXmlItem tree (node name =
// element name, node value = the element's own text with entities decoded).
// Attributes, comments, processing instructions and DOCTYPE are skipped;
// CDATA sections are text. Not a validating parser: a document that is not
// well formed (unclosed or mismatched elements) gives no tree.
#include <memory>
#include <string>

class CXmlItem;

class CXmlFactory {
public:
    // The root element of the document, or null when the file cannot be read
    // or is not well formed. The caller owns the tree.
    static std::unique_ptr<CXmlItem> ReadXmlDocumentFromFilePath(const std::u16string& path);
    static std::unique_ptr<CXmlItem> ReadXmlDocumentFromText(const std::string& utf8);
};

// The host's folders by name: "config" (the code dictionary "srcode.xml") and
// "temp" (trace files). Our stand-in for the host's path service reads them
// from the environment: ZELDICOM_CONFIG_DIR, else $XDG_CONFIG_HOME/zeldicom,
// else $HOME/.config/zeldicom; ZELDICOM_TEMP_DIR, else $TMPDIR, else /tmp.
// A folder set with SetFolder wins. Paths end without a slash.
class CPathService {
public:
    static std::u16string GetFolder(const std::u16string& name);
    static void SetFolder(const std::u16string& name, const std::u16string& path);
};
