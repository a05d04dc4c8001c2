// The file root under which the host places the system's fixed absolute
// paths: HNX_ROOT from the environment, unless a test or tool set another.
#include <cstdio>
#include <cstdlib>

#include "platform/host/hnx_host.h"
#include "platform/kw_runtime.h"

namespace {

// "/tmp/r/" and "/tmp/r" are one root; "/" is the real paths, as "" is.
std::string normalized(std::string root) {
    while (!root.empty() && root.back() == '/') root.pop_back();
    return root;
}

std::string &root_store() {
    static std::string root = [] {
        const char *env = std::getenv("HNX_ROOT");
        return normalized(env ? env : "");
    }();
    return root;
}

}  // namespace

void hnx_host_set_root(const std::string &root) { root_store() = normalized(root); }

const std::string &hnx_host_root() { return root_store(); }

std::string hnx_host_path(std::string_view abs_path) {
    const std::string &root = root_store();
    if (root.empty()) return std::string(abs_path);
    std::string path = root;
    if (abs_path.empty() || abs_path.front() != '/') path += '/';
    path += abs_path;
    return path;
}

const char *kw_root_path(const char *abs_path, char *buf, size_t len) {
    if (buf == nullptr || len == 0) return buf;
    std::snprintf(buf, len, "%s", hnx_host_path(abs_path ? abs_path : "").c_str());
    return buf;
}
