// The list of the devices found this boot, as text for people: in the debug output and in the policy debug text.
#pragma once

namespace bds {

void PrintDeviceList();
void AppendDeviceListToPolicyText();

}  // namespace bds
