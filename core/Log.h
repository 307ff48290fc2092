#pragma once

// Plain lines on stderr: "<program>: text", with "warning:" or "error:" before
// the text where it is one. Debug lines only when verbose.
void InstallLogHandler(bool verbose, const char* program = "kestrava");
