#include <cstdio>
#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"

int main()
{
    std::u16string vr;
    CDicomItem data(u"Data");
    data.AddTag(0x0010, 0x0010, u"DOE^JOHN", u"");
    std::u16string name;
    bool ok = CTagTable::GetVR(0x0010, 0x0010, vr) == 1 && vr == u"PN" && data.GetTagValue(0x0010, 0x0010, name) &&
              name == u"DOE^JOHN";
    std::puts(ok ? "consumer ok" : "consumer failed");
    return ok ? 0 : 1;
}
