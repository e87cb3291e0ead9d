// The commands that only show.
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

// Opens the host and settles which networks to show.
std::optional<std::vector<int>> Begin(const Arguments &arguments, Context *context, int *status) {
    const std::optional<std::vector<int>> named = ParseNetworks(arguments);
    if (!named) {
        *status = STATUS_USAGE;
        return std::nullopt;
    }
    if (!Open(context)) {
        *status = STATUS_FAILED;
        return std::nullopt;
    }
    return NamedOrAll(*named, context->host);
}

int WhetherAllRun(const Host &host, const std::vector<int> &networks) {
    for (const int network : networks) {
        if (!host.networks[network].AllConfiguredRun()) {
            return STATUS_NOT_RUNNING;
        }
    }
    return STATUS_DONE;
}

}  // namespace

int RunList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (!networks) {
        return status;
    }
    const std::vector<NetworkView> views = ViewsOf(context, *networks);
    PrintResult(arguments, ListTable(context.host, views), ListJson(context.host, views));
    return WhetherAllRun(context.host, *networks);
}

int RunShow(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (!networks) {
        return status;
    }
    const NetworkView view = ViewsOf(context, *networks).front();
    Print((arguments.json ? ShowJson(context.host, view) : ShowText(context.host, view)).c_str());
    return WhetherAllRun(context.host, *networks);
}

int RunForwardList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (networks) {
        PrintResult(arguments, ForwardTable(context.host, *networks), ForwardJson(context.host, *networks));
    }
    return status;
}

int RunReserveList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (networks) {
        PrintResult(arguments, ReservationTable(context.host, *networks),
                    ReservationJson(context.host, *networks));
    }
    return status;
}

int RunAdapterList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    if (Begin(arguments, &context, &status)) {
        PrintResult(arguments, AdapterTable(context.host), AdapterJson(context.host));
    }
    return status;
}

int RunLeaseList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (networks) {
        const std::vector<NetworkView> views = ViewsOf(context, *networks);
        PrintResult(arguments, LeaseTable(views), LeaseJson(views));
    }
    return status;
}

int RunGuestList(const Arguments &arguments) {
    Context context;
    int status = STATUS_DONE;
    const auto networks = Begin(arguments, &context, &status);
    if (networks) {
        const std::vector<NetworkView> views = ViewsOf(context, *networks);
        PrintResult(arguments, GuestTable(views), GuestJson(views));
    }
    return status;
}
