#pragma once
// The presentation contexts of one association and its AE titles.
#include <memory>
#include <string>
#include <vector>

class CPresentationContext {
public:
    CPresentationContext() = default;
    virtual ~CPresentationContext() = default;

    // Appends a copy of the UID; an empty text is ignored.
    void AddTransferSyntax(const std::string& uid);
    // The index-th proposed UID; std::out_of_range outside the list.
    const std::string& GetTransferSyntax(int index) const { return m_transferSyntaxes.at(static_cast<size_t>(index)); }
    int GetTransferSyntaxCount() const { return static_cast<int>(m_transferSyntaxes.size()); }

    // Accepting side's checks: 1 when the abstract syntax is one this library
    // supports (result 0), else 0 and result 3.
    int IsValidAbstractSyntax();
    // Index of the first proposed syntax that is supported (result 0), or -1 (result 4).
    int GetValidTransferSyntax();
    // Takes the library's most preferred syntax among those proposed into
    // the accepted field (result 0, returns 1); none: result 4, returns 0.
    int SelectValidTransferSyntax();

    unsigned char m_ucPresContextID = 0;
    // PS3.8 9.3.3.2: 0 acceptance, 1 user rejection, 2 no reason,
    // 3 abstract syntax not supported, 4 transfer syntaxes not supported.
    unsigned char m_ucResult = 2;
    std::string m_sAbstractSyntax;
    std::string m_sAcceptedTransferSyntax;

private:
    std::vector<std::string> m_transferSyntaxes;
};

class CAssociateData {
public:
    CAssociateData();
    void AddPresContext(CPresentationContext* context);  // takes ownership
    // Forgets every context: the next association proposes its own set.
    void RemovePresContexts() { m_contexts.clear(); }
    CPresentationContext* GetPresContext(int index) const { return m_contexts.at(static_cast<size_t>(index)).get(); }
    int GetPresContextCount() const { return static_cast<int>(m_contexts.size()); }
    CPresentationContext* GetPresContextByID(unsigned char id) const;
    // Stores result and accepted syntax into the first context with the ID; 0 when none has it.
    int ValidatePresContext(unsigned char id, unsigned char result, const std::string& transferSyntax);

    // 16 characters and a terminator; blanks until set.
    char m_szCalledAETitle[17];
    char m_szCallingAETitle[17];

private:
    std::vector<std::unique_ptr<CPresentationContext>> m_contexts;
};
