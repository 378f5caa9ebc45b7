#include "platform/lasterror.h"

#include <cerrno>
#include <cstring>

void CLastError::SetSystem(int errorNumber)
{
    if (errorNumber <= 0)
        errorNumber = EIO;
    m_nCode = errorNumber;
    m_sText = std::strerror(errorNumber);
}
