#pragma once

#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Tells which of some files and directories were opened, or changed, by anybody since the watch began (inotify).
/// Mounts make no difference: what is opened through a sandbox's path is seen here.
class OpenWatch {
public:
    explicit OpenWatch(const std::vector<std::string>& paths) : queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        for (const std::string& path : paths) {
            const int watch = inotify_add_watch(queue, path.c_str(), IN_OPEN | IN_MODIFY | IN_ATTRIB);
            EXPECT_GE(watch, 0) << "cannot watch " << path;
            names[watch] = path;
        }
    }

    ~OpenWatch() { static_cast<void>(close(queue)); }

    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    /// @return how often each path was opened since the last call, without those that were not.
    std::map<std::string, int> opened() {
        read();
        return std::exchange(opens, {});
    }

    /// @return the paths whose content or attributes changed since the watch began.
    std::set<std::string> changed() {
        read();
        return changes;
    }

private:
    void read() {
        alignas(inotify_event) char buffer[65536];
        for (ssize_t count = 0; (count = ::read(queue, buffer, sizeof buffer)) > 0;) {
            for (ssize_t at = 0; at < count;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                if (event->len != 0) {
                    continue; // of an entry of a watched directory
                }
                if ((event->mask & IN_OPEN) != 0) {
                    ++opens[names[event->wd]];
                } else {
                    changes.insert(names[event->wd]);
                }
            }
        }
    }

    int queue;
    std::map<int, std::string> names;
    std::map<std::string, int> opens;
    std::set<std::string> changes;
};
