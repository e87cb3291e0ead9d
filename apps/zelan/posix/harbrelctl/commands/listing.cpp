// The commands that only show.
#include <functional>

#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

using Networks = std::vector<int>;

// Opens the host, settles which networks to show, and gives the status of what shows them.
int Show(const Arguments &arguments, const std::function<int(const Context &, const Networks &)> &show) {
    const std::optional<Networks> named = ParseNetworks(arguments);
    if (!named) {
        return STATUS_USAGE;
    }
    Context context;
    return Open(&context) ? show(context, NamedOrAll(*named, context.host)) : STATUS_FAILED;
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
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        const std::vector<NetworkView> views = ViewsOf(context, networks);
        PrintResult(arguments, ListTable(context.host, views), ListJson(context.host, views));
        return WhetherAllRun(context.host, networks);
    });
}

int RunShow(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        const NetworkView view = ViewsOf(context, networks).front();
        Print((arguments.json ? ShowJson(context.host, view) : ShowText(context.host, view)).c_str());
        return WhetherAllRun(context.host, networks);
    });
}

int RunForwardList(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        return PrintResult(arguments, ForwardTable(context.host, networks),
                           ForwardJson(context.host, networks));
    });
}

int RunReserveList(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        return PrintResult(arguments, ReservationTable(context.host, networks),
                           ReservationJson(context.host, networks));
    });
}

int RunAdapterList(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &) {
        return PrintResult(arguments, AdapterTable(context.host), AdapterJson(context.host));
    });
}

int RunLeaseList(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        const std::vector<NetworkView> views = ViewsOf(context, networks);
        return PrintResult(arguments, LeaseTable(views), LeaseJson(views));
    });
}

int RunGuestList(const Arguments &arguments) {
    return Show(arguments, [&](const Context &context, const Networks &networks) {
        const std::vector<NetworkView> views = ViewsOf(context, networks);
        return PrintResult(arguments, GuestTable(views), GuestJson(views));
    });
}
