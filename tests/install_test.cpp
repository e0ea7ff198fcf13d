// Installs this build into a temporary prefix and builds the list_networks example outside the
// tree against it, once through the CMake package and once through pkg-config; each links the
// shared library and lists the simulator's networks.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/peers.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace quorlin {
namespace {

int run(const std::string& command) {
  int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string file_text(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

const char kExpectedListing[] = "1 Friends\n2 Work\n3 Gaming\n";

class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(service_.start()) << "port 7000 is taken";
    ASSERT_EQ(run("cmake --install " QUORLIN_BINARY_DIR " --prefix " + prefix() + " >" +
                  dir_.file("install.log") + " 2>&1"),
              0)
        << file_text(dir_.file("install.log"));
  }
  std::string prefix() const { return dir_.file("prefix"); }
  // Compiles and links `source` into list_networks with the flags pkg-config gives.
  int build_with_pkg_config(const std::string& source, const std::string& log) {
    return run(
        QUORLIN_CXX_COMPILER " -std=c++20 -Werror=missing-include-dirs " QUORLIN_CXX_FLAGS " " +
        source + " -o " + dir_.file("list_networks") + " " +
        QUORLIN_LINKER_FLAGS " $(PKG_CONFIG_PATH=" + prefix() +
        "/" QUORLIN_LIBDIR "/pkgconfig pkg-config --cflags --libs quorlin) >" + log + " 2>&1");
  }
  testing::TempDir dir_;
  simulator::ServiceSimulator service_;
};

TEST_F(InstallTest, ConsumerBuildsThroughTheCMakePackage) {
  const std::string log = dir_.file("cmake.log");
  ASSERT_EQ(run("cmake -S " QUORLIN_SOURCE_DIR "/examples -B " + dir_.file("build") +
                " -G Ninja -DCMAKE_CXX_COMPILER=" QUORLIN_CXX_COMPILER
                " -DCMAKE_CXX_FLAGS='" QUORLIN_CXX_FLAGS
                "' -DCMAKE_EXE_LINKER_FLAGS='" QUORLIN_LINKER_FLAGS "' -DCMAKE_PREFIX_PATH=" +
                prefix() + " >" + log + " 2>&1 && cmake --build " + dir_.file("build") + " >>" +
                log + " 2>&1"),
            0)
      << file_text(log);
  ASSERT_EQ(run(dir_.file("build/list_networks") + " >" + dir_.file("out")), 0);
  EXPECT_EQ(file_text(dir_.file("out")), kExpectedListing);
}

TEST_F(InstallTest, ConsumerBuildsThroughPkgConfig) {
  const std::string log = dir_.file("pkg-config.log");
  ASSERT_EQ(build_with_pkg_config(QUORLIN_SOURCE_DIR "/examples/list_networks.cpp", log), 0)
      << file_text(log);
  ASSERT_EQ(run("LD_LIBRARY_PATH=" + prefix() + "/" QUORLIN_LIBDIR " " +
                dir_.file("list_networks") + " >" + dir_.file("out")),
            0);
  EXPECT_EQ(file_text(dir_.file("out")), kExpectedListing);
}

// The library's insides stay out of reach: an internal header is not installed, and a function
// the shared library does not export does not link.
TEST_F(InstallTest, ConsumerCannotReachTheInternals) {
  // What g++ and clang both print, and the linker under either.
  const struct {
    const char* source;
    const char* error;
    const char* subject;
  } rows[] = {
      {"#include \"quorlin/xml/xml_tree_internal.hpp\"\nint main() {}\n",
       "fatal error: ", "quorlin/xml/xml_tree_internal.hpp"},
      {"namespace quorlin { struct XmlDocument { char* allocate_text(unsigned long); }; }\n"
       "int main() { return quorlin::XmlDocument().allocate_text(1) != nullptr; }\n",
       "undefined reference to ", "quorlin::XmlDocument::allocate_text(unsigned long)"},
  };
  for (const auto& row : rows) {
    const std::string source = dir_.file("internal.cpp");
    std::ofstream(source) << row.source;
    const std::string log = dir_.file("internal.log");
    EXPECT_NE(build_with_pkg_config(source, log), 0) << row.source;
    const std::string printed = file_text(log);
    EXPECT_NE(printed.find(row.error), std::string::npos) << printed;
    EXPECT_NE(printed.find(row.subject), std::string::npos) << printed;
  }
}

}  // namespace
}  // namespace quorlin
