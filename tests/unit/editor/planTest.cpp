// What the editor plans for a difference between two states.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/table.h"
#include "apps/zelan/posix/harbrelctl/plan/plan.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Json = nlohmann::ordered_json;

// zelan8 behind NAT, on which the given services run.
Host HostWith(const std::vector<Service> &running) {
    Host host;
    for (const char *word : {"subnet=192.168.8.0/24", "dhcp=on", "nat=on", "adapter=on"}) {
        EXPECT_EQ("", Assign(word, &host.config.networks[8]));
    }
    host.config.defaultBridge = NO_NETWORK;
    for (const Service service : running) {
        host.networks[8].services[service].running = true;
    }
    return host;
}

std::vector<std::string> Texts(const Host &host, const Config &after, const NetworkAim &aim) {
    std::vector<std::string> texts;
    for (const Step &step : MakeSteps(host, KernelView(), after, {aim})) {
        texts.push_back(StepText(step));
    }
    return texts;
}

NetworkAim For8(Aim aim, StaleFiles stale = {}) {
    return {8, aim, stale, false, {}};
}

TEST(EditorPlan, StepsTouchWhatIsNotRightAndNothingElse) {
    const Host up = HostWith({SERVICE_DHCP, SERVICE_NAT, SERVICE_ADAPTER});
    const Host down = HostWith({});
    EXPECT_THAT(Texts(up, up.config, For8(AIM_RUN)), IsEmpty());
    EXPECT_THAT(
        Texts(up, up.config, For8(AIM_FOLLOW, {.dhcp = true})),
        ElementsAre("stop dhcp on zelan8", "write the file of dhcp on zelan8", "start dhcp on zelan8"));
    EXPECT_THAT(Texts(down, down.config, For8(AIM_FOLLOW, {.dhcp = true})),
                ElementsAre("write the file of dhcp on zelan8"))
        << "a stopped network stays so";
    EXPECT_THAT(Texts(down, down.config, For8(AIM_RUN)),
                ElementsAre("start dhcp on zelan8", "start nat on zelan8", "start adapter on zelan8"));
    const Host without = HostWith({SERVICE_DHCP, SERVICE_ADAPTER});
    EXPECT_THAT(Texts(without, without.config, For8(AIM_RUN)), ElementsAre("start nat on zelan8"));
    Config after = up.config;
    EXPECT_EQ("", Assign("nat=off", &after.networks[8]));
    EXPECT_THAT(Texts(up, after, For8(AIM_FOLLOW)), ElementsAre("stop nat on zelan8"));
    EXPECT_EQ("", Assign("adapter-name=lan0", &after.networks[8]));
    EXPECT_EQ("", Assign("nat=on", &after.networks[8]));
    EXPECT_THAT(Texts(up, after, For8(AIM_FOLLOW)),
                ElementsAre("stop adapter on zelan8", "start adapter on zelan8"));
    EXPECT_THAT(Texts(up, after, For8(AIM_FILES, {true, true})), IsEmpty());
    EXPECT_EQ(3U, Texts(up, up.config, For8(AIM_STOP)).size());
}

// Spoils one value after another of a plan file that reads.
void ExpectEveryMemberCounts(const Json &whole) {
    static const std::regex FOR_READERS(
        "/plan/(steps/.*/text|files/.*/diff|changes/.*/(removed|added))|/format");
    static const std::regex WORDS("/plan/(changes/.*/kind|steps/.*/(step|service))");
    ASSERT_TRUE(ReadPlanJson(whole.dump()));
    const Json values = whole.flatten();
    for (const auto &[path, value] : values.items()) {
        if (std::regex_match(path, FOR_READERS)) {
            continue;
        }
        for (const Json &other : {Json(), Json(true), Json("nothing"), Json(-2), Json(1 << 16)}) {
            if (other.type_name() == value.type_name() && !other.is_number() &&
                !std::regex_match(path, WORDS)) {
                continue;
            }
            Json spoilt = whole;
            spoilt[Json::json_pointer(path)] = other;
            EXPECT_EQ(std::nullopt, ReadPlanJson(spoilt.dump())) << path << " " << other;
        }
    }
}

TEST(EditorPlan, DifferencesApplyAndSurviveAPlanFile) {
    const Host host = HostWith({SERVICE_DHCP});
    Config after = host.config;
    after.networks[8].forwards.push_back({true, 8888, 0x0a000001, 80, "the \"web\"\tserver \xff"});
    after.networks[8].reservations.push_back({"02:00:00:00:00:01", 0x0a000001});
    after.mappings["eth1"] = NO_NETWORK;
    after.defaultBridge = 0;
    EXPECT_EQ("", Assign("dhcp=off", &after.networks[8]));
    Plan plan;
    plan.networks = {8};
    plan.state = StateHash(host, plan.networks);
    plan.changes = Difference(host.config, after);
    plan.steps = {{STEP_STOP, 8, SERVICE_DHCP}, {STEP_REMOVE, 8, SERVICE_BRIDGE}};
    EXPECT_EQ(after, Applied(host.config, plan.changes));
    after.networks[8].forwards[0].note = "the server";
    plan.changes = Difference(host.config, after);
    EXPECT_EQ(plan, ReadPlanJson(PlanJson(plan)));
    plan.files = {{"/etc/orvane/x", "", "y\n"}};
    ExpectEveryMemberCounts(Json::parse(PlanJson(plan)));
    EXPECT_NE(plan.state, StateHash(HostWith({}), plan.networks)) << "what runs is part of the state";
    for (const char *bad :
         {"", "{}", "[]", "{\"plan\":{\"state\":\"x\"}}",
          "{\"plan\":{\"state\":\"\",\"networks\":[256],\"changes\":[],\"files\":[],\"steps\":[]}}",
          "{\"plan\":{\"state\":\"\",\"networks\":[],\"changes\":[{\"kind\":\"answer\","
          "\"network\":8,\"number\":99,\"tcp\":false,\"name\":\"\"}],\"files\":[],\"steps\":[]}}"}) {
        EXPECT_EQ(std::nullopt, ReadPlanJson(bad)) << bad;
    }
}

TEST(EditorPlan, DiffsAreThoseThatPatchReads) {
    EXPECT_EQ("", UnifiedDiff({"f", "a\n", "a\n"}));
    EXPECT_EQ("--- /dev/null\n+++ f\n@@ -0,0 +1,2 @@\n+a\n+b\n", UnifiedDiff({"f", "", "a\nb\n"}));
    EXPECT_EQ(
        "--- f\n+++ f\n@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+x\n 6\n 7\n 8\n@@ -12,3 +12,4 @@\n 12\n 13\n "
        "14\n+15\n",
        UnifiedDiff({"f", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n",
                     "1\n2\n3\n4\nx\n6\n7\n8\n9\n10\n11\n12\n13\n14\n15\n"}));
}

TEST(EditorOutput, ColumnsLineUpWhateverTheLetters) {
    const Table table = {{"NAME", "N"}, {{"gr\xc3\xbc\xc3\x9f", "1"}, {"x", ""}}};
    EXPECT_EQ("NAME  N\ngr\xc3\xbc\xc3\x9f  1\nx     -\n", RenderTable(table, true, false));
    EXPECT_EQ("gr\xc3\xbc\xc3\x9f  1\nx     -\n", RenderTable(table, false, false));
}

}  // namespace
