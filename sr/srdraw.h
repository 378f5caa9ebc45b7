#pragma once
// Where a structured report is drawn: the few operations of a drawing
// context that the report layout needs (CSR::Draw, sr_render.cpp), and a
// plain-text context whose lines are characters, for the command line and
// the tests.
#include <string>
#include <vector>

// Width and height in the context's logical units.
struct SR_EXTENT {
    int cx = 0;
    int cy = 0;
};

// What the layout shows beside each content item's concept name and value.
struct SR_LAYOUT {
    bool bIndent = false;        // children indented under their parent, two blanks a level
    bool bRelationship = false;  // the relationship to the parent in front, "(CONTAINS) "
    bool bIsoDates = false;      // dates and times in ISO 8601 (2001-02-13, 18:47:46), not the display form
};

class CSRDrawContext {
public:
    virtual ~CSRDrawContext() = default;
    // Switches to a transparent background; the previous mode, for RestoreBackground.
    virtual int SetTransparentBackground() = 0;
    virtual void RestoreBackground(int previous) = 0;
    // The size of the text in the context's current font.
    virtual SR_EXTENT GetTextExtent(const std::u16string& text) = 0;
    virtual void DrawText(int x, int y, const std::u16string& text) = 0;
};

// Every character is one unit wide and every line one unit high; lines are
// kept by their y.
class CSRTextContext : public CSRDrawContext {
public:
    int SetTransparentBackground() override;
    void RestoreBackground(int previous) override;
    SR_EXTENT GetTextExtent(const std::u16string& text) override;
    void DrawText(int x, int y, const std::u16string& text) override;
    // The drawn lines, UTF-8, each ended by "\n".
    std::string GetText() const;

    std::vector<std::u16string> m_lines;
    int m_nBackground = 0;  // 0 opaque, 1 transparent
};
