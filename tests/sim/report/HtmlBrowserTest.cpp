// The page a person opens: mroute-sim --html writes it, headless Chromium
// loads it and lays it out, and the browser's console stays silent (the page
// has no script, so anything there is a fault of the page). Skipped, with the
// reason, where Chromium is not installed.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string chromium() {
  for (char const* name : {"chromium", "chromium-browser"}) {
    char const* path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
      fs::path const candidate = fs::path(dir) / name;
      if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
  }
  return {};
}

std::string slurp(fs::path const& p) {
  std::ifstream in(p);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

int shell(std::string const& command) {
  int const status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class HtmlBrowserTest : public testing::Test {
 protected:
  void SetUp() override {
    browser_ = chromium();
    if (browser_.empty()) GTEST_SKIP() << "Chromium is not installed (Debian package chromium): the page is not rendered";
    dir_ = fs::temp_directory_path() / ("falmroute-html-" + std::to_string(::getpid()) + "-" +
                                        testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  struct Load {
    std::string dom;
    std::vector<std::string> console;
  };
  // Loads the page headless; the laid-out document and the console's lines.
  Load load(fs::path const& page) {
    fs::path const dom = dir_ / "dom.html";
    fs::path const log = dir_ / "browser.log";
    std::string const command = "'" + browser_ + "' --headless --no-sandbox --disable-gpu --no-first-run --user-data-dir='" +
                                (dir_ / "profile").string() + "' --enable-logging=stderr --v=0 --dump-dom 'file://" +
                                page.string() + "' >'" + dom.string() + "' 2>'" + log.string() + "'";
    EXPECT_EQ(shell(command), 0) << slurp(log);
    Load out{slurp(dom), {}};
    std::istringstream lines(slurp(log));
    std::string line;
    while (std::getline(lines, line)) {
      if (line.find(":CONSOLE") != std::string::npos) out.console.push_back(line);
    }
    return out;
  }

  std::string browser_;
  fs::path dir_;
};

std::size_t count(std::string const& text, std::string const& what) {
  std::size_t n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

TEST_F(HtmlBrowserTest, TheFrrPageLoadsWithEveryChartAndASilentConsole) {
  fs::path const page = dir_ / "frr.html";
  std::string const sim = std::string("'") + MROUTE_SIM + "' -q --html '" + page.string() + "' '" +
                          FALMROUTE_SOURCE_DIR + "/examples/frr.json' >/dev/null 2>&1";
  ASSERT_EQ(shell(sim), 0);
  std::string const html = slurp(page);
  ASSERT_GT(count(html, "<svg"), 5u);
  Load const loaded = load(page);
  EXPECT_EQ(count(loaded.dom, "<svg"), count(html, "<svg")) << "every chart is in the loaded document";
  EXPECT_EQ(count(loaded.dom, "<polyline"), count(html, "<polyline"));
  EXPECT_TRUE(loaded.console.empty()) << loaded.console.front();
}

TEST_F(HtmlBrowserTest, AConsoleErrorIsSeen) {
  // The check above must be able to fail: a page that writes to the console.
  fs::path const page = dir_ / "noisy.html";
  std::ofstream(page) << "<!DOCTYPE html><html><body><script>console.error('noisy page')</script></body></html>";
  Load const loaded = load(page);
  ASSERT_EQ(loaded.console.size(), 1u);
  EXPECT_NE(loaded.console[0].find("noisy page"), std::string::npos);
}

}  // namespace
