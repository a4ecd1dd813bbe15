#include "metrics/ifaddress.h"

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

#include "base/fatal.h"

namespace qor {

int GetIfAddress(FixedText<128>& address, const char* ifname) {
  // "0" is how the configuration says "no interface"; the address then says the same.
  if (ifname == nullptr || *ifname == '\0' || std::strcmp(ifname, "0") == 0) {
    address.set("0");
    return 0;
  }
  struct ifaddrs* list = nullptr;
  // The address is the node's identity in every row it writes; without it nothing can go on.
  if (getifaddrs(&list) == -1) {
    std::fputs("getifaddrs error.", stderr);
    FatalExit();
  }
  for (struct ifaddrs* ifa = list; ifa != nullptr; ifa = ifa->ifa_next) {
    if (ifa->ifa_addr == nullptr || ifa->ifa_addr->sa_family != AF_INET) continue;
    if (std::strcmp(ifa->ifa_name, ifname) != 0) continue;
    char host[NI_MAXHOST];
    int rc = getnameinfo(ifa->ifa_addr, sizeof(struct sockaddr_in), host, sizeof host, nullptr, 0,
                         NI_NUMERICHOST);
    if (rc != 0) {
      std::printf("getnameinfo() failed: %s\n", gai_strerror(rc));
      freeifaddrs(list);
      FatalExit();
    }
    address.set(host);
  }
  freeifaddrs(list);
  return 0;
}

}  // namespace qor
