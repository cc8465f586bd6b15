// Loads libferrotip.so at run time as a host audio editor does.
#include <ferrotip/ferrotip.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

struct Module {
    Module() : handle(dlopen(FERROTIP_MODULE_PATH, RTLD_NOW | RTLD_LOCAL)) {}
    ~Module()
    {
        if (handle) dlclose(handle);
    }
    template <typename Fn>
    Fn symbol(const char* name) const
    {
        return reinterpret_cast<Fn>(dlsym(handle, name));
    }
    void* handle;
};

std::set<std::string> definedDynamicSymbols()
{
    const std::string command = std::string("nm -D --defined-only ") + FERROTIP_MODULE_PATH;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::set<std::string> names;
    char line[512];
    while (pipe && std::fgets(line, sizeof line, pipe.get())) {
        std::string text(line);
        const auto space = text.find_last_of(' ');
        std::string name = text.substr(space + 1);
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        names.insert(name);
    }
    return names;
}

TEST(HostModule, ExportsExactlyTheThreeEntryPoints)
{
    EXPECT_EQ(definedDynamicSymbols(),
              (std::set<std::string>{"getMethodDescription", "init", "process"}));
}

TEST(HostModule, EnumeratesAndRepairsLikeAHost)
{
    Module module;
    ASSERT_NE(module.handle, nullptr) << dlerror();
    auto describe = module.symbol<FerrotipGetMethodDescriptionFn>("getMethodDescription");
    auto initialise = module.symbol<FerrotipInitFn>("init");
    auto repair = module.symbol<FerrotipProcessFn>("process");
    ASSERT_TRUE(describe && initialise && repair);
    initialise(nullptr, nullptr);

    std::vector<std::string> names;
    for (int index = 0;; ++index) {
        MethodDescription record{};
        record.index = index;
        describe(&record);
        if (record.name == nullptr) break;
        names.emplace_back(record.name);
    }
    ASSERT_EQ(names.size(), 7u);
    EXPECT_EQ(names[2], "Normal Clicks");

    std::vector<float> left(8000), right(8000);
    for (int i = 0; i < 8000; ++i) {
        left[i] = 0.5f * static_cast<float>(std::sin(0.03 * i));
        right[i] = 0.5f * static_cast<float>(std::cos(0.021 * i));
    }
    const std::vector<float> cleanLeft = left;
    for (int i = 4000; i < 4020; ++i) left[i] = right[i] = 0.9f;
    float* channels[] = {left.data(), right.data()};
    int32_t fadeLeft = -1, fadeRight = -1;
    EXPECT_EQ(repair(nullptr, channels, 2, 44100, 4000, 20, 2, &fadeLeft, &fadeRight), 0);
    EXPECT_EQ(fadeLeft, 0);
    for (int i = 4000; i < 4020; ++i) EXPECT_NEAR(left[i], cleanLeft[i], 1e-3);
    EXPECT_EQ(repair(nullptr, channels, 2, 44100, 4000, 20, 0, &fadeLeft, &fadeRight), 0);
}

}  // namespace
