#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr const char *KINDS[] = {"answer", "reservation", "forward", "default_bridge", "mapping"};
constexpr const char *STEPS[] = {"stop", "write", "start", "remove", "node"};

Json ValueJson(const std::optional<RecordValue> &value) {
    if (!value) {
        return {};
    }
    return {{"text", value->text}, {"address", AddressText(value->address)}, {"number", value->number}};
}

Json ChangeJson(const RecordChange &change) {
    const RecordKey &key = change.key;
    return {{"kind", KINDS[key.kind]},
            {"network", key.network},
            {"number", key.number},
            {"tcp", key.tcp},
            {"name", key.name},
            {"before", ValueJson(change.before)},
            {"after", ValueJson(change.after)},
            {"removed", change.before ? Json(RecordText(key, *change.before)) : Json()},
            {"added", change.after ? Json(RecordText(key, *change.after)) : Json()}};
}

Json ChangesArray(const std::vector<RecordChange> &changes) {
    Json array = Json::array();
    for (const RecordChange &change : changes) {
        array.push_back(ChangeJson(change));
    }
    return array;
}

bool IsNumberWithin(const Json &value, int first, int last) {
    return value.is_number_integer() && value >= first && value <= last;
}

// Reads members of one object; a member that is missing or of another type spoils the whole.
class Reader {
  public:
    explicit Reader(const Json &object) : object_(object), good_(object.is_object()) {}

    bool good() const { return good_; }
    void Demand(bool condition) { good_ = good_ && condition; }
    int Number(const char *key, int first, int last) {
        const Json value = Member(key);
        return Take<int>(value, IsNumberWithin(value, first, last));
    }
    std::string Text(const char *key) {
        const Json value = Member(key);
        return Take<std::string>(value, value.is_string());
    }
    bool Flag(const char *key) {
        const Json value = Member(key);
        return Take<bool>(value, value.is_boolean());
    }
    template <size_t N>
    int Word(const char *key, const char *const (&words)[N]) {
        const auto found = std::find(std::begin(words), std::end(words), Text(key));
        Demand(found != std::end(words));
        return static_cast<int>(found - words);
    }
    // Null when there is none.
    Json Member(const char *key) const { return object_.is_object() ? object_.value(key, Json()) : Json(); }

  private:
    template <typename T>
    T Take(const Json &value, bool fits) {
        Demand(fits);
        return good_ ? value.get<T>() : T();
    }

    const Json object_;
    bool good_;
};

std::optional<RecordValue> ReadValue(Reader *owner, const char *key) {
    const Json value = owner->Member(key);
    if (value.is_null()) {
        return std::nullopt;
    }
    Reader reader(value);
    RecordValue result;
    result.text = reader.Text("text");
    const std::optional<uint32_t> address = ParseAddress(reader.Text("address"));
    result.address = address.value_or(0);
    result.number = reader.Number("number", NO_NETWORK, UINT16_MAX);
    owner->Demand(reader.good() && address);
    return result;
}

RecordChange ReadChange(Reader *reader) {
    RecordChange change;
    change.key.kind = static_cast<RecordKind>(reader->Word("kind", KINDS));
    change.key.network = reader->Number("network", NO_NETWORK, NETWORK_COUNT - 1);
    const int last = change.key.kind == RECORD_ANSWER ? FIELD_COUNT - 1 : UINT16_MAX;
    change.key.number = reader->Number("number", 0, last);
    change.key.tcp = reader->Flag("tcp");
    change.key.name = reader->Text("name");
    change.before = ReadValue(reader, "before");
    change.after = ReadValue(reader, "after");
    reader->Demand(change.key.network != NO_NETWORK || change.key.kind >= RECORD_DEFAULT_BRIDGE);
    return change;
}

// Fills the list from an array; false when that is none or an element does not read.
template <typename T, typename ReadOne>
bool ReadList(const Json &array, std::vector<T> *list, ReadOne readOne) {
    bool good = array.is_array();
    for (const Json &element : array) {
        Reader reader(element);
        list->push_back(readOne(&reader));
        good = good && reader.good();
    }
    return good;
}

FileChange ReadFile(Reader *reader) {
    return {reader->Text("path"), reader->Text("before"), reader->Text("after")};
}

Step ReadStep(Reader *reader) {
    const char *const names[] = {SERVICES[0].name, SERVICES[1].name, SERVICES[2].name, SERVICES[3].name};
    const auto kind = static_cast<StepKind>(reader->Word("step", STEPS));
    const int network = reader->Number("network", 0, NETWORK_COUNT - 1);
    return {kind, network, static_cast<Service>(reader->Word("service", names))};
}

bool ReadNetworks(const Json &array, std::vector<int> *networks) {
    const bool good = array.is_array() && std::all_of(array.begin(), array.end(), [](const Json &element) {
                          return IsNumberWithin(element, 0, NETWORK_COUNT - 1);
                      });
    if (good) {
        *networks = array.get<std::vector<int>>();
    }
    return good;
}

Json Parse(const std::string &text) {
    return Json::parse(text, nullptr, false);
}

std::string Dump(const Json &document) {
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string ChangesJson(const std::vector<RecordChange> &changes) {
    return Dump({{"changes", ChangesArray(changes)}});
}

std::optional<std::vector<RecordChange>> ReadChangesJson(const std::string &text) {
    const Reader reader(Parse(text));
    std::vector<RecordChange> changes;
    return ReadList(reader.Member("changes"), &changes, ReadChange) ? std::optional(changes) : std::nullopt;
}

std::string PlanJson(const Plan &plan) {
    Json files = Json::array();
    for (const FileChange &file : plan.files) {
        files.push_back({{"path", file.path},
                         {"before", file.before},
                         {"after", file.after},
                         {"diff", UnifiedDiff(file)}});
    }
    Json steps = Json::array();
    for (const Step &step : plan.steps) {
        steps.push_back({{"step", STEPS[step.kind]},
                         {"network", step.network},
                         {"service", SERVICES[step.service].name},
                         {"text", StepText(step)}});
    }
    return Dump({{"format", 1},
                 {"plan",
                  {{"state", plan.state},
                   {"networks", plan.networks},
                   {"changes", ChangesArray(plan.changes)},
                   {"files", files},
                   {"steps", steps}}}});
}

std::optional<Plan> ReadPlanJson(const std::string &text) {
    Reader reader(Reader(Parse(text)).Member("plan"));
    Plan plan;
    plan.state = reader.Text("state");
    const bool lists = ReadNetworks(reader.Member("networks"), &plan.networks) &&
                       ReadList(reader.Member("changes"), &plan.changes, ReadChange) &&
                       ReadList(reader.Member("files"), &plan.files, ReadFile) &&
                       ReadList(reader.Member("steps"), &plan.steps, ReadStep);
    return lists && reader.good() ? std::optional(plan) : std::nullopt;
}
