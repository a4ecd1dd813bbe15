#include "cli/usage.h"

#include <cstdio>

#include "base/progname.h"
#include "config/qorver.h"

namespace qor {

namespace {

const char* const kUsageLines[] = {
    "usage: qorclustd -start              #start deaon",
    "     : qorclustd -start_boot         #start deaon at boot",
    "     : qorclustd -stop               #stop daemon",
    "     : qorclustd -ps|proc            #show daemon running",
    "     : qorclustd -update             #update cluster at one time",
    "     : qorclustd -monitor            #monitor cluster at one time",
    "     : qorclustd -explain            #show what the monitor would do now",
    "     : qorclustd -explainj           #show what the monitor would do now as JSON",
    "     : qorclustd -l|lf               #show cluster table",
    "     : qorclustd -lj                 #show cluster table as JSON",
    "     : qorclustd -count              #show cluster node count",
    "     : qorclustd -chown              #chown qortemplates on master.",
    "     : qorclustd -synctpl | synclictpl  #rsync qortemplates from master.",
    "     : qorclustd -cluster            #show cluster enabled",
    "     : qorclustd -conf               #show cluster config",
    "     : qorclustd -role               #show cluster role",
    "     : qorclustd -master             #show master server's ipaddr",
    "     : qorclustd -ismaster           #this is master or not",
    "     : qorclustd -slave              #show slave server's ipaddr",
    "     : qorclustd -members            #show member server's ipaddr",
    "     : qorclustd -all                #show all server's ipaddr",
    "     : qorclustd -all_not_master            #show all server's ipaddr excpt master",
    "     : qorclustd -ping host [trycount]      #ping",
    "     : qorclustd -rm_all_from_master        #remove all cluster from master",
    "     : qorclustd -rm_all_from_slave         #remove all cluster from slave",
    "     : qorclustd -rm_from_master host       #remove a cluster from master",
    "     : qorclustd -rm_from_slave  host       #remove a cluster from slave",
    "     : qorclustd -set_old_on_master host    #set a cluster old on master",
    "     : qorclustd -set_old_on_slave  host    #set a cluster old on slave",
    "     : qorclustd -set_tplold_on_master host #set a cluster tplold on master",
    "     : qorclustd -set_tplold_on_slave  host #set a cluster tplold on slave",
    "     : qorclustd -maintenance [host on minutes reason or host off] #maintenance marks",
    "     : qorclustd -timesec            #show current time (s)",
    "     : qorclustd -timemill           #show current time (ms)",
    "     : qorclustd -clear              #clear clusters table (for standalone)",
    "     : qorclustd -v                  #show version",
    "     : qorclustd -qorver             #show qor version",
    "     : qorclustd -*x                 #debug mode",
};

}  // namespace

void Usage() {
  std::printf("%s %s %s\n", Progname, Progver, Progdate);
  for (const char* line : kUsageLines) std::puts(line);
}

int ShowVersion() {
  std::printf("%s\n", Progver);
  return 0;
}

int ShowQorVersion() {
  FixedText<128> version;
  if (GetQorVer(version) != 0) return 1;
  std::printf("%s\n", version.c_str());
  return 0;
}

}  // namespace qor
