#include "platform/language.h"

#include "platform/dlltools.h"
#include "platform/text.h"

using namespace zeldicom;

CTranslationService& CTranslationService::GetUniqueInstance()
{
    static CTranslationService instance;
    return instance;
}

void CTranslationService::SetText(const std::u16string& module, const std::u16string& section,
                                  const std::u16string& key, const std::u16string& text)
{
    for (auto& entry : m_entries)
        if (EqualsNoCase(entry.module, module) && entry.section == section && entry.key == key) {
            entry.text = text;
            return;
        }
    m_entries.push_back({module, section, key, text});
}

std::u16string CTranslationService::GetText(const std::u16string& section, const std::u16string& key,
                                            const std::u16string& module) const
{
    for (const auto& entry : m_entries)
        if (EqualsNoCase(entry.module, module) && entry.section == section && entry.key == key)
            return entry.text;
    return key;
}

bool CTranslationService::HasModule(const std::u16string& module) const
{
    for (const auto& entry : m_entries)
        if (EqualsNoCase(entry.module, module))
            return true;
    return false;
}

std::u16string CLanguageProvider::GetTranslationTextFromDll(const std::u16string& section, const std::u16string& key)
{
    return GetTranslationTextFromExternalLib(section, key, CDllTools::GetCallingDllName());
}

std::u16string CLanguageProvider::GetTranslationTextFromExe(const std::u16string& section, const std::u16string& key)
{
    return GetTranslationTextFromExternalLib(section, key, CDllTools::GetCallingExeName());
}

std::u16string CLanguageProvider::GetTranslationTextFromExternalLib(const std::u16string& section,
                                                                    const std::u16string& key,
                                                                    const std::u16string& module)
{
    return CTranslationService::GetUniqueInstance().GetText(section, key, module);
}

bool CLanguageProvider::RegisterDll(int /*resourceId*/)
{
    // Resources are not split into numbered translation files here; the
    // service's cache is the set of texts given for this module.
    return CTranslationService::GetUniqueInstance().HasModule(CDllTools::GetCallingDllName());
}
