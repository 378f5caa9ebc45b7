// The small XML reader and the path service (see xmlreader.h).
#include "platform/xmlreader.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <vector>

#include "platform/text.h"
#include "platform/xmlitem.h"

using namespace zeldicom;

namespace {

constexpr size_t kMaxFileSize = 64u << 20;
constexpr int kMaxDepth = 256;

class Reader {
public:
    explicit Reader(const std::string& text) : m_text(text) {}

    std::unique_ptr<CXmlItem> Document()
    {
        std::unique_ptr<CXmlItem> root;
        while (SkipMisc()) {
            if (root)
                return nullptr;  // a second root element
            root = Element(0);
            if (!root)
                return nullptr;
        }
        return m_pos == m_text.size() ? std::move(root) : nullptr;
    }

private:
    bool StartsWith(const char* prefix) const { return m_text.compare(m_pos, std::strlen(prefix), prefix) == 0; }

    // Skips blanks, comments, declarations; true when an element starts here.
    bool SkipMisc()
    {
        for (;;) {
            while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos])))
                ++m_pos;
            if (StartsWith("<!--")) {
                if (!SkipPast("-->"))
                    return false;
            } else if (StartsWith("<?") || StartsWith("<!")) {
                if (!SkipPast(">"))
                    return false;
            } else {
                return StartsWith("<");
            }
        }
    }
    bool SkipPast(const char* end)
    {
        size_t found = m_text.find(end, m_pos);
        if (found == std::string::npos) {
            m_pos = m_text.size();
            return false;
        }
        m_pos = found + std::strlen(end);
        return true;
    }
    std::string Name()
    {
        size_t start = m_pos;
        while (m_pos < m_text.size() && !std::isspace(static_cast<unsigned char>(m_text[m_pos])) &&
               m_text[m_pos] != '>' && m_text[m_pos] != '/' && m_text[m_pos] != '<' && m_text[m_pos] != '=')
            ++m_pos;
        return m_text.substr(start, m_pos - start);
    }

    static void AppendEntity(const std::string& entity, std::string& out)
    {
        static const std::map<std::string, std::string> kNamed = {
            {"lt", "<"}, {"gt", ">"}, {"amp", "&"}, {"quot", "\""}, {"apos", "'"}};
        auto named = kNamed.find(entity);
        if (named != kNamed.end()) {
            out += named->second;
            return;
        }
        if (entity.size() > 1 && entity[0] == '#') {
            bool hex = entity[1] == 'x' || entity[1] == 'X';
            unsigned long code = std::strtoul(entity.c_str() + (hex ? 2 : 1), nullptr, hex ? 16 : 10);
            if (code > 0 && code <= 0x10FFFF && !(code >= 0xD800 && code <= 0xDFFF)) {
                std::u16string wide;
                if (code >= 0x10000) {
                    code -= 0x10000;
                    wide += static_cast<char16_t>(0xD800 + (code >> 10));
                    wide += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
                } else {
                    wide += static_cast<char16_t>(code);
                }
                out += Utf16ToUtf8(wide);
                return;
            }
        }
        out += "&" + entity + ";";  // unknown: kept as written
    }

    std::unique_ptr<CXmlItem> Element(int depth)
    {
        if (depth > kMaxDepth)
            return nullptr;
        ++m_pos;  // '<'
        std::string name = Name();
        if (name.empty())
            return nullptr;
        // Attributes are skipped, quoted values included.
        char quote = 0;
        while (m_pos < m_text.size() && (quote || m_text[m_pos] != '>')) {
            char c = m_text[m_pos++];
            if (quote && c == quote)
                quote = 0;
            else if (!quote && (c == '"' || c == '\''))
                quote = c;
        }
        if (m_pos >= m_text.size())
            return nullptr;
        bool empty = m_text[m_pos - 1] == '/';
        ++m_pos;  // '>'
        auto node = std::make_unique<CXmlItem>(Utf8ToUtf16(name), std::u16string(), std::string());
        if (empty)
            return node;
        std::string text;
        while (m_pos < m_text.size()) {
            char c = m_text[m_pos];
            if (c == '&') {
                size_t end = m_text.find(';', m_pos);
                if (end == std::string::npos || end - m_pos > 12) {
                    text += c;
                    ++m_pos;
                } else {
                    AppendEntity(m_text.substr(m_pos + 1, end - m_pos - 1), text);
                    m_pos = end + 1;
                }
            } else if (c != '<') {
                text += c;
                ++m_pos;
            } else if (StartsWith("<![CDATA[")) {
                size_t end = m_text.find("]]>", m_pos);
                if (end == std::string::npos)
                    return nullptr;
                text += m_text.substr(m_pos + 9, end - m_pos - 9);
                m_pos = end + 3;
            } else if (StartsWith("<!--")) {
                if (!SkipPast("-->"))
                    return nullptr;
            } else if (StartsWith("<?")) {
                if (!SkipPast("?>"))
                    return nullptr;
            } else if (StartsWith("</")) {
                m_pos += 2;
                if (Name() != name)
                    return nullptr;
                while (m_pos < m_text.size() && m_text[m_pos] != '>')
                    ++m_pos;
                if (m_pos >= m_text.size())
                    return nullptr;
                ++m_pos;
                node->m_sValue = Trim(Utf8ToUtf16(text));
                return node;
            } else {
                auto child = Element(depth + 1);
                if (!child)
                    return nullptr;
                node->AddItem(child.release());
            }
        }
        return nullptr;  // not closed
    }

    const std::string& m_text;
    size_t m_pos = 0;
};

std::map<std::u16string, std::u16string>& SetFolders()
{
    static std::map<std::u16string, std::u16string> folders;
    return folders;
}

std::u16string FromEnvironment(const char* name, const char* suffix = "")
{
    const char* value = std::getenv(name);
    return value && *value ? Utf8ToUtf16(std::string(value) + suffix) : std::u16string();
}

}  // namespace

std::unique_ptr<CXmlItem> CXmlFactory::ReadXmlDocumentFromText(const std::string& utf8)
{
    std::string text = utf8.compare(0, 3, "\xEF\xBB\xBF") == 0 ? utf8.substr(3) : utf8;
    return Reader(text).Document();
}

std::unique_ptr<CXmlItem> CXmlFactory::ReadXmlDocumentFromFilePath(const std::u16string& path)
{
    std::ifstream in(Utf16ToUtf8(path), std::ios::binary);
    if (!in)
        return nullptr;
    std::string text;
    char chunk[65536];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        text.append(chunk, static_cast<size_t>(in.gcount()));
        if (text.size() > kMaxFileSize)
            return nullptr;
    }
    return ReadXmlDocumentFromText(text);
}

std::u16string CPathService::GetFolder(const std::u16string& name)
{
    auto set = SetFolders().find(name);
    if (set != SetFolders().end())
        return set->second;
    std::u16string folder;
    if (name == u"config") {
        folder = FromEnvironment("ZELDICOM_CONFIG_DIR");
        if (folder.empty())
            folder = FromEnvironment("XDG_CONFIG_HOME", "/zeldicom");
        if (folder.empty())
            folder = FromEnvironment("HOME", "/.config/zeldicom");
    } else if (name == u"temp") {
        folder = FromEnvironment("ZELDICOM_TEMP_DIR");
        if (folder.empty())
            folder = FromEnvironment("TMPDIR");
        if (folder.empty())
            folder = u"/tmp";
    }
    while (folder.size() > 1 && folder.back() == u'/')
        folder.pop_back();
    return folder;
}

void CPathService::SetFolder(const std::u16string& name, const std::u16string& path)
{
    SetFolders()[name] = path;
}
