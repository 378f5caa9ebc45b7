#pragma once
// Translation texts by section and key for a module. The service answers
// with the texts the host has given it; without one, a key stands for itself.
#include <string>
#include <vector>

class CTranslationService {
public:
    static CTranslationService& GetUniqueInstance();
    void SetText(const std::u16string& module, const std::u16string& section, const std::u16string& key,
                 const std::u16string& text);
    // The text for (section, key) of the module; the key when there is none.
    std::u16string GetText(const std::u16string& section, const std::u16string& key,
                           const std::u16string& module) const;
    // Whether the host has given any text for the module.
    bool HasModule(const std::u16string& module) const;

private:
    struct Entry {
        std::u16string module, section, key, text;
    };
    std::vector<Entry> m_entries;
};

// The library's own and the host's module names put in front of the
// translation service.
class CLanguageProvider {
public:
    static std::u16string GetTranslationTextFromDll(const std::u16string& section, const std::u16string& key);
    static std::u16string GetTranslationTextFromExe(const std::u16string& section, const std::u16string& key);
    static std::u16string GetTranslationTextFromExternalLib(const std::u16string& section, const std::u16string& key,
                                                            const std::u16string& module);
    // True when the service holds texts for this library's module.
    static bool RegisterDll(int resourceId);
};
