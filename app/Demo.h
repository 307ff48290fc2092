#pragma once

class ProgramFolder;
class SettingsStore;

// A folder for trying the program without hardware: the simulated transceiver,
// a web port, and the server open to this machine and the home network only.
// Only a folder without setting.ini is prepared; returns whether it was.
bool PrepareDemoFolder(const ProgramFolder& folder, SettingsStore& settings);

constexpr const char* DefaultDemoFolder = "kestrava-demo";
constexpr int DemoWebPort = 8421;
