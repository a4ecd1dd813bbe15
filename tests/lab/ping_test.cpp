// Reachability as the daemon tests it, through -ping on a member: a host that answers, one that
// leaves the requests unanswered (each of two tries costs its second and brings it one request),
// and an address refused before anything is sent; all without falling back to /bin/ping.
#include "lab/lab_fixture.h"

namespace qorlab {
namespace {

TEST_F(LabCluster, PingAnsweredSilentAndRefused) {
  ASSERT_EQ(lab_.Shell(kMember2, "sysctl -qw net.ipv4.icmp_echo_ignore_all=1").status, 0);
  struct {
    std::string address;
    int status;
    double least, most;  // seconds the command takes
  } cases[] = {{lab_.Info(kSlave).address, 0, 0, 1},
               {lab_.Info(kMember2).address, 1, 2, 2.9},
               {"a;b", 1, 0, 1}};
  for (const auto& c : cases) {
    int64_t t0 = NowMill();
    RunResult r = lab_.Run(kMember1, {"-ping", c.address, "2"});
    double took = (NowMill() - t0) / 1000.0;
    EXPECT_EQ(r.out, (c.status ? "ping NG! (" : "ping OK! (") + c.address + ")\n");
    EXPECT_EQ(r.status, c.status) << c.address;
    EXPECT_TRUE(took >= c.least && took < c.most) << c.address << " took " << took << " s";
  }
  EXPECT_EQ(lab_.Shell(kMember2, "nstat -asz IcmpInEchos | awk '/Echos/ {print $2}'").out, "2\n");
  EXPECT_TRUE(Logged(lab_, kMember1, "ping refused address (a;b)"));
  EXPECT_FALSE(Logged(lab_, kMember1, "ping runs /bin/ping"));
}

}  // namespace
}  // namespace qorlab
