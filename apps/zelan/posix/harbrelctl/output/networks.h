// Networks, for people and for programs. Texts end with a line end; JSON is one document.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/details.h"
#include "apps/zelan/posix/harbrelctl/output/table.h"

struct NetworkView {
    int number = 0;
    Details details;
};

Table ListTable(const Host &host, const std::vector<NetworkView> &views);
std::string ListJson(const Host &host, const std::vector<NetworkView> &views);

std::string ShowText(const Host &host, const NetworkView &view);
std::string ShowJson(const Host &host, const NetworkView &view);

Table ForwardTable(const Host &host, const std::vector<int> &networks);
std::string ForwardJson(const Host &host, const std::vector<int> &networks);
Table ReservationTable(const Host &host, const std::vector<int> &networks);
std::string ReservationJson(const Host &host, const std::vector<int> &networks);
Table AdapterTable(const Host &host);
std::string AdapterJson(const Host &host);
Table LeaseTable(const std::vector<NetworkView> &views);
std::string LeaseJson(const std::vector<NetworkView> &views);
Table GuestTable(const std::vector<NetworkView> &views);
std::string GuestJson(const std::vector<NetworkView> &views);

// "2026-11-23 07:00:00" of this host's clock, and as ISO 8601 in UTC.
std::string LocalTime(time_t moment);
std::string UtcTime(time_t moment);
// "zelan3", or "none".
std::string NetworkOrNone(int network);
