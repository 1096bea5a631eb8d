// SPDX-License-Identifier: MIT
// Objects that by design live until the process ends, for the leak checker: the models of a project browser. The
// checker finds the function among the exported symbols.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:TARNOK::ProjectBrowser::ProjectBrowser\n"
           "leak:libfontconfig\n"
           "leak:libQt6Gui\n"
           "leak:libQt6Widgets\n";
}
