#pragma once

#include <string>

/// How a host finds the control, in the keys of the machine's classes.
namespace qm_registration {

// Identifiers. Never change: hosts hold them.
constexpr const char* kLibraryId = "{4F07BC94-B76E-48ED-A894-8E38C64A00B8}";
constexpr const char* kInterfaceId = "{FBB1AB3D-50D1-4F75-8C31-AE54EE71CE61}";
constexpr const char* kEventsId = "{EAFA3386-EEC2-472B-9D45-2CE6CF26E3FC}";
constexpr const char* kClassId = "{F6896C2F-489A-46B0-BD71-7C1844E5AEC1}";

/// Where the classes stand, under the root of the local machine.
constexpr const char* kClassesKey = "SOFTWARE\\Classes";

/// Enters the control's keys, with the path of the module that holds it. The class's own key is made anew.
/// Throws what the registry throws.
void registerControl(const std::string& sModule);

/// Removes what `registerControl` enters. Keys that hold anything else stay, with that; the class's own key
/// goes with all its content. Nothing there is no failure. Throws what the registry throws.
void unregisterControl();

}  // namespace qm_registration
