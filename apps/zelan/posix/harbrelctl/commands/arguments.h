// The command line as the commands get it.
#pragma once

#include <string>
#include <vector>

struct Arguments {
    // Of every command.
    bool json = false;
    bool noLegend = false;
    bool dryRun = false;
    bool noApply = false;
    bool verbose = false;
    bool yes = false;

    std::vector<std::string> networks;  // as written; what a command calls NET...
    std::string network;                // the one that a command calls NET
    std::vector<std::string> words;     // KEY=VALUE..., KEY...
    // add
    bool nat = false;
    bool hostOnly = false;
    std::vector<std::string> bridge;
    std::string subnet;
    bool noDhcp = false;
    // forward, reserve
    std::string protocol;
    std::string ports;
    std::string target;  // address and port; address of a reservation
    std::string note;
    std::string guest;  // MAC address, or the name in the leases
    // adapter
    std::string adapter;
    std::string destination;
    std::string onOff;
    // apply, export, import, graph
    std::string file;
    std::string planFile;
    // doctor
    bool deep = false;
};
