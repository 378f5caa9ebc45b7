#include "network/associatedata.h"

#include <cstring>

namespace {

// Abstract syntaxes the accepting side supports: image and structured
// report storage, patient- and study-root FIND and MOVE, verification.
constexpr const char* kSupportedAbstractSyntaxes[] = {
    "1.2.840.10008.5.1.4.1.1.1",     "1.2.840.10008.5.1.4.1.1.2",     "1.2.840.10008.5.1.4.1.1.6",
    "1.2.840.10008.5.1.4.1.1.6.1",   "1.2.840.10008.5.1.4.1.1.3",     "1.2.840.10008.5.1.4.1.1.3.1",
    "1.2.840.10008.5.1.4.1.1.4",     "1.2.840.10008.5.1.4.1.1.5",     "1.2.840.10008.5.1.4.1.1.20",
    "1.2.840.10008.5.1.4.1.1.7",     "1.2.840.10008.5.1.4.1.1.12.1",  "1.2.840.10008.5.1.4.1.1.12.2",
    "1.2.840.10008.5.1.4.1.1.12.3",  "1.2.840.10008.5.1.4.1.1.1.2",   "1.2.840.10008.5.1.4.1.1.1.2.1",
    "1.2.840.10008.5.1.4.1.1.88.11", "1.2.840.10008.5.1.4.1.1.88.22", "1.2.840.10008.5.1.4.1.1.88.33",
    "1.2.840.10008.5.1.4.1.2.1.1",   "1.2.840.10008.5.1.4.1.2.1.2",   "1.2.840.10008.5.1.4.1.2.2.1",
    "1.2.840.10008.5.1.4.1.2.2.2",   "1.2.840.10008.1.1",
};

// Transfer syntaxes in the library's order of preference: implicit and
// explicit VR little endian, JPEG baseline, extended, lossless, RLE.
constexpr const char* kSupportedTransferSyntaxes[] = {
    "1.2.840.10008.1.2",      "1.2.840.10008.1.2.1",    "1.2.840.10008.1.2.4.50",
    "1.2.840.10008.1.2.4.51", "1.2.840.10008.1.2.4.70", "1.2.840.10008.1.2.5",
};

bool IsSupportedTransferSyntax(const std::string& uid)
{
    for (const char* supported : kSupportedTransferSyntaxes)
        if (uid == supported)
            return true;
    return false;
}

}

void CPresentationContext::AddTransferSyntax(const std::string& uid)
{
    if (!uid.empty())
        m_transferSyntaxes.push_back(uid);
}

int CPresentationContext::IsValidAbstractSyntax()
{
    for (const char* supported : kSupportedAbstractSyntaxes)
        if (m_sAbstractSyntax == supported) {
            m_ucResult = 0;
            return 1;
        }
    m_ucResult = 3;
    return 0;
}

int CPresentationContext::GetValidTransferSyntax()
{
    for (size_t i = 0; i < m_transferSyntaxes.size(); ++i)
        if (IsSupportedTransferSyntax(m_transferSyntaxes[i])) {
            m_ucResult = 0;
            return static_cast<int>(i);
        }
    m_ucResult = 4;
    return -1;
}

int CPresentationContext::SelectValidTransferSyntax()
{
    for (const char* supported : kSupportedTransferSyntaxes)
        for (const std::string& proposed : m_transferSyntaxes)
            if (proposed == supported) {
                m_sAcceptedTransferSyntax = proposed;
                m_ucResult = 0;
                return 1;
            }
    m_ucResult = 4;
    return 0;
}

CAssociateData::CAssociateData()
{
    std::memset(m_szCalledAETitle, ' ', 16);
    std::memset(m_szCallingAETitle, ' ', 16);
    m_szCalledAETitle[16] = m_szCallingAETitle[16] = '\0';
}

void CAssociateData::AddPresContext(CPresentationContext* context)
{
    if (context)
        m_contexts.emplace_back(context);
}

CPresentationContext* CAssociateData::GetPresContextByID(unsigned char id) const
{
    for (const auto& context : m_contexts)
        if (context->m_ucPresContextID == id)
            return context.get();
    return nullptr;
}

int CAssociateData::ValidatePresContext(unsigned char id, unsigned char result, const std::string& transferSyntax)
{
    CPresentationContext* context = GetPresContextByID(id);
    if (!context)
        return 0;
    context->m_ucResult = result;
    context->m_sAcceptedTransferSyntax = transferSyntax;
    return 1;
}
