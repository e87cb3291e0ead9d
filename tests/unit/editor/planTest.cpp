// What the editor plans for a difference between two states.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/table.h"
#include "apps/zelan/posix/harbrelctl/plan/plan.h"

namespace {

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

std::string Texts(const std::vector<Step> &steps) {
    std::string text;
    for (const Step &step : steps) {
        text += StepText(step) + ";";
    }
    return text;
}

TEST(EditorPlan, StepsTouchWhatIsNotRightAndNothingElse) {
    const Host up = HostWith({SERVICE_DHCP, SERVICE_NAT, SERVICE_ADAPTER});
    const Host partly = HostWith({SERVICE_DHCP, SERVICE_ADAPTER});
    const Host down = HostWith({});
    Config renamed = up.config, without = up.config, moved = up.config;
    EXPECT_EQ("", Assign("adapter-name=lan0", &renamed.networks[8]));
    EXPECT_EQ("", Assign("nat=off", &without.networks[8]));
    EXPECT_EQ("", Assign("subnet=192.168.9.0/24", &moved.networks[8]));
    KernelView kernel;
    kernel.links.resize(1);
    kernel.links[0].index = 5;
    kernel.links[0].name = "zelan8";
    kernel.addresses = {{4, 0xc0a80901, {0xc0a80900, MaskOf(24)}}, {5, 0xc0a80801, {0xc0a80800, MaskOf(24)}}};
    const std::string dhcp = " dhcp on zelan8;", nat = " nat on zelan8;", write = "write the file of";
    const std::string adapter = " adapter on zelan8;", again = "stop" + adapter + "start" + adapter;
    const std::string stop = "stop" + dhcp + "stop" + nat + "stop" + adapter;
    const std::string start = "start" + dhcp + "start" + nat + "start" + adapter;
    const auto anew = [&](auto &service) { return "stop" + service + write + service + "start" + service; };
    struct Row {
        const Host &host;
        const Config &after;
        NetworkAim aim;
        std::string steps;
    };
    const Row cases[] = {
        {up, up.config, {8, AIM_RUN, {}, false, {}}, ""},
        {up, up.config, {8, AIM_STOP, {}, true, {}}, stop},
        {up, up.config, {8, AIM_RESTART, {}, true, {}}, stop + start},
        {down, down.config, {8, AIM_RESTART, {}, false, {}}, start},
        {down, down.config, {8, AIM_RUN, {}, true, {}}, start},
        {up, up.config, {8, AIM_FOLLOW, {}, true, {}}, "make the device node of zelan8;"},
        {down, down.config, {8, AIM_FOLLOW, {}, true, {}}, ""},
        {up, up.config, {8, AIM_FOLLOW, {true, false}, true, {}}, anew(dhcp)},
        {up, up.config, {8, AIM_FOLLOW, {false, true}, false, {}}, anew(nat)},
        {down, down.config, {8, AIM_FOLLOW, {true, false}, false, {}}, write + dhcp},
        {up, up.config, {8, AIM_FOLLOW, {}, false, {false, true}}, "stop" + dhcp + "start" + dhcp},
        {partly, up.config, {8, AIM_FOLLOW, {}, false, {}}, "start" + nat},
        {up, without, {8, AIM_FOLLOW, {}, false, {}}, "stop" + nat},
        {up, renamed, {8, AIM_FOLLOW, {}, false, {}}, again},
        {up, moved, {8, AIM_FOLLOW, {}, false, {}}, again},
        {up, renamed, {8, AIM_FILES, {true, true}, false, {}}, ""},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(row.steps, Texts(MakeSteps(row.host, kernel, row.after, {row.aim}))) << row.aim.aim;
    }
    EXPECT_EQ("", Texts(MakeSteps(up, KernelView(), moved, {{8, AIM_FOLLOW, {}, false, {}}})));
    EXPECT_EQ(stop + "remove zelan8;", Texts(RemovalSteps(up, 8)));
    EXPECT_EQ("remove zelan8;", Texts(RemovalSteps(down, 8)));
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
        const Json above = path.find("network") != path.npos ? 256 : 1 << 16;
        for (const Json &other : {Json(), Json(true), Json("nothing"), Json(-2), above}) {
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
    plan.steps = {{STEP_STOP, 8, SERVICE_DHCP},
                  {STEP_REMOVE, 8, SERVICE_BRIDGE},
                  {STEP_WRITE, 8, SERVICE_NAT},
                  {STEP_START, 8, SERVICE_ADAPTER},
                  {STEP_NODE, 8, SERVICE_BRIDGE}};
    EXPECT_EQ(after, Applied(host.config, plan.changes));
    after.networks[8].forwards[0].note = "the server";
    plan.changes = Difference(host.config, after);
    EXPECT_EQ(plan, ReadPlanJson(PlanJson(plan)));
    plan.files = {{"/etc/orvane/x", "", "y\n"}};
    ExpectEveryMemberCounts(Json::parse(PlanJson(plan)));
    EXPECT_NE(plan.state, StateHash(HostWith({}), plan.networks)) << "what runs is part of the state";
    EXPECT_EQ(
        R"({"kind":"reservation","network":8,"number":0,"tcp":false,"name":"02:00:00:00:00:01","before":null,)"
        R"("after":{"text":"","address":"10.0.0.1","number":0},"removed":null,)"
        R"("added":"add_dhcp_mac_to_ip 8 02:00:00:00:00:01 10.0.0.1"})",
        Json::parse(PlanJson(plan))["plan"]["changes"][1].dump());
    Json document = Json::parse(PlanJson(plan));
    Json &change = document["plan"]["changes"][0];
    for (const auto &[kind, network, number, reads] : {std::tuple("mapping", -1, 65535, true),
                                                       {"answer", 8, int{FIELD_COUNT} - 1, true},
                                                       {"answer", 8, int{FIELD_COUNT}, false},
                                                       {"answer", -1, 1, false}}) {
        change["kind"] = kind;
        change["network"] = network;
        change["number"] = number;
        EXPECT_EQ(reads, ReadPlanJson(document.dump()).has_value()) << change;
    }
    EXPECT_FALSE(ReadPlanJson("") || ReadPlanJson("{}") || ReadPlanJson("[]"));
}

TEST(EditorPlan, DiffsAreThoseThatPatchReads) {
    EXPECT_EQ("", UnifiedDiff({"f", "a\n", "a\n"}));
    EXPECT_EQ("--- /dev/null\n+++ f\n@@ -0,0 +1,2 @@\n+a\n+b\n", UnifiedDiff({"f", "", "a\nb\n"}));
    EXPECT_EQ("--- f\n+++ /dev/null\n@@ -1,1 +0,0 @@\n-a\n", UnifiedDiff({"f", "a\n", ""}));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,3 +1,3 @@\n-a\n b\n c\n+a\n",
              UnifiedDiff({"f", "a\nb\nc\n", "b\nc\na\n"}));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,3 +1,3 @@\n+a\n b\n c\n-a\n",
              UnifiedDiff({"f", "b\nc\na\n", "a\nb\nc\n"}));
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
