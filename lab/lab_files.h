// The files a lab host is given: its platform directory (.qorconf, .env, qorbin/ with the key and
// the stand-ins, and on the master the shared trees), and the master's sshd configuration.
#pragma once

#include <string>

#include "lab/lab.h"

namespace qorlab {

// The stand-ins of the platform's commands, installed under qorbin/.
constexpr const char* kLabStandIns[] = {"qordown.sh", "lumobrstat", "lumodtstat"};
// Where the stand-ins record their calls, inside a host.
constexpr const char* kLabCallsFile = "/var/www/html/qor/qorbin/calls.log";

// The text of the stand-in for command: it appends "date time.ms command arguments" to the calls
// file and answers as a run that did its work.
std::string StandInScript(const std::string& command);

// The sshd configuration of the master: its own host key and authorized keys, only qorrun, only
// by key, only on the master's address.
std::string SshdConfig(const std::string& address, const std::string& hostKey,
                       const std::string& authorizedKeys, const std::string& pidFile);

// Writes host h's platform directory under qorDir (the host's dir/qor), the private key from
// keyFile included; an error text, empty on success.
std::string WritePlatformDir(const LabHost& h, const std::string& qorDir,
                             const std::string& keyFile);

}  // namespace qorlab
