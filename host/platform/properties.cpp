// System properties on the host: an in-process store, preloaded from the file named by
// ZYNCAM_PROPERTIES ("key=value" lines, '#' comments).
#include <cutils/properties.h>

#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include <zyncam_host/Platform.h>

namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::string> values;
};

bool loadInto(Store& store, const char* path) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        store.values[line.substr(0, eq)] = line.substr(eq + 1, PROPERTY_VALUE_MAX - 1);
    }
    return true;
}

Store& store() {
    static Store* s = [] {
        auto* created = new Store;  // never destroyed: properties outlive static destructors
        if (const char* path = getenv("ZYNCAM_PROPERTIES")) loadInto(*created, path);
        return created;
    }();
    return *s;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.lock);
    auto it = key ? s.values.find(key) : s.values.end();
    const char* source = it != s.values.end() ? it->second.c_str() : default_value;
    if (source == nullptr) {
        value[0] = '\0';
        return 0;
    }
    size_t len = strnlen(source, PROPERTY_VALUE_MAX - 1);
    memcpy(value, source, len);
    value[len] = '\0';
    return static_cast<int>(len);
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    if (key == nullptr) return default_value;
    char buf[PROPERTY_VALUE_MAX];
    if (property_get(key, buf, "") < 1) return default_value;
    int saved = errno;
    errno = 0;
    char* end = nullptr;
    intmax_t parsed = strtoimax(buf, &end, 0);
    int32_t result = default_value;
    if (errno != ERANGE && end != buf && parsed >= INT32_MIN && parsed <= INT32_MAX) {
        result = static_cast<int32_t>(parsed);
    }
    errno = saved;
    return result;
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || *key == '\0') return -1;
    if (value == nullptr) value = "";
    if (strlen(value) >= PROPERTY_VALUE_MAX) return -1;
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.lock);
    s.values[key] = value;
    return 0;
}

namespace zyncam::host {

void propertyClear(const char* key) {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.lock);
    s.values.erase(key);
}

void propertyClearAll() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.lock);
    s.values.clear();
}

bool propertyLoadFile(const char* path) {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.lock);
    return loadInto(s, path);
}

}  // namespace zyncam::host
