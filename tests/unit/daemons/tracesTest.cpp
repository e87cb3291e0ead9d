#include "daemons/common/traces.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(Traces, RecordIsReadAsItWasWritten) {
    const std::string text =
        "process 71\nstart-time 18446744073709551615\nhost-interface 3\nlink 4\nlink 5\nfilters 0\n"
        "pid-file /run/odd\nname .pid\n";
    Traces traces;
    ASSERT_TRUE(Traces_Parse(text, &traces));
    EXPECT_EQ(text, Traces_Text(traces));
    EXPECT_EQ(71, traces.process);
    EXPECT_EQ("/run/odd\nname .pid", traces.pidFile);
    EXPECT_EQ((std::vector<int>{4, 5}), traces.cleanUp.links);
    EXPECT_EQ("process 0\nstart-time 0\nhost-interface 0\npid-file \n", Traces_Text({}));
    for (const char *broken : {"", "process 1\n", "process x\npid-file a\n", "process -1\npid-file a\n",
                               "start-time 1x\npid-file a\n", "other 1\npid-file a\n", "\npid-file a\n"}) {
        EXPECT_FALSE(Traces_Parse(broken, &traces)) << broken;
    }
}

TEST(Traces, RecordIsNamedAfterItsDuty) {
    for (const char *name : {"bridge-0", "netifup-8", "dhcp-17", "nat-255", "detect"}) {
        Duty duty;
        ASSERT_TRUE(Traces_IsRecord(std::string("daemon-") + name, &duty)) << name;
        EXPECT_EQ(std::string("/run/zelan/daemon-") + name, Traces_Path(duty));
    }
    Duty none;
    for (const char *name : {"daemon-nat-256", "daemon-nat-", "daemon-none-1", "daemon-", "nat-1"}) {
        EXPECT_FALSE(Traces_IsRecord(name, &none)) << name;
    }
}

TEST(Traces, StartTimeIsOfOneProcess) {
    EXPECT_LT(Process_StartTime(1), Process_StartTime(getpid()));
    EXPECT_EQ(0U, Process_StartTime(-1));
}
