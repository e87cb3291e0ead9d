// A full disk for the process.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <memory>

// What the body gives while no file can grow beyond that size.
template <typename Body>
auto OnFullDisk(rlim_t bytes, Body body) {
    rlimit former = {};
    getrlimit(RLIMIT_FSIZE, &former);
    const sighandler_t handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {bytes, former.rlim_max};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    const std::shared_ptr<void> behind(nullptr, [&](void *) {
        setrlimit(RLIMIT_FSIZE, &former);
        signal(SIGXFSZ, handler);
    });
    return body();
}
