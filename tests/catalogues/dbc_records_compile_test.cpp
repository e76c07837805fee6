// The generated message records of every test database, and of a database with hostile names,
// compile in a real applet and set signals through the workstation's codec.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "RuvoManager/ruvo_sdk.h"
#include "build/compile_support.h"
#include "host/can_dlc.h"
#include "host/dbc.h"
#include "test_support.h"

namespace fs = std::filesystem;
using namespace hostbridge::dbc;

namespace {

const char* const kHostile =
    "VERSION \"\"\nBU_: N\n"
    "BO_ 100 int: 8 N\n"
    " SG_ class : 0|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ frame : 8|8@1+ (0.5,-3) [0|255] \"\" N\n"
    " SG_ EOF : 16|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ 1st-gear#x : 24|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ int : 32|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ dup : 40|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ dup : 48|8@1+ (1,0) [0|255] \"\" N\n"
    " SG_ __x : 56|8@1+ (1,0) [0|255] \"\" N\n"
    "BO_ 101 int: 8 N\n"
    " SG_ pack : 7|16@0- (2,1) [0|0] \"\" N\n"
    "BO_ 102 com: 24 N\n"
    " SG_ send : 100|12@1- (1,0) [0|0] \"\" N\n"
    "BA_DEF_ BO_ \"VFrameFormat\" ENUM \"StandardCAN\",\"ExtendedCAN\",\"StandardCAN_FD\";\n"
    "BA_ \"VFrameFormat\" BO_ 102 2;\n";

std::string hex(const uint8_t* data, size_t n) {
    std::string out;
    char b[3];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(b, sizeof b, "%02x", data[i]);
        out += b;
    }
    return out;
}

bool plain(const Message& m) {
    if (m.signals.empty() || m.extended) return false;
    for (const Signal& s : m.signals)
        if (s.isMultiplexer || !s.muxSwitch.empty() || s.valueType != ValueType::Integer) return false;
    return true;
}

class DatabaseRecords : public ::testing::Test {
protected:
    void SetUp() override {
        if (testing_support::compilerMissing(RUVO_TOOL_TREE_DIR)) GTEST_SKIP() << testing_support::kNeedsCompiler;
        testing_support::makeInstallation(host.path(), RUVO_TOOL_TREE_DIR);
        previous = fs::current_path();
        fs::current_path(host.path());
        ruvo_sdk::initRuvo(project.path().c_str());
    }
    void TearDown() override {
        if (previous.empty()) return;  // skipped
        workstationDatabases().clear();
        ruvo_sdk::RefreshRuvoDbcInfo();
        ruvo_sdk::destroyRuvo("records");
        fs::current_path(previous);
    }
    testing_support::TempDir host, project;
    fs::path previous;
};

TEST_F(DatabaseRecords, EveryTestDatabaseCompilesAndPacksAsTheCodecEncodes) {
    std::vector<std::string> files;
    for (const auto& e : fs::directory_iterator(RUVO_DBC_DATA_DIR))
        if (e.path().extension() == ".dbc") files.push_back(e.path().string());
    std::sort(files.begin(), files.end());
    ASSERT_GE(files.size(), 5u);
    files.push_back(project.file("odd names.dbc"));
    std::ofstream(files.back()) << kHostile;

    std::string error;
    for (size_t ch = 0; ch < files.size(); ++ch)
        ASSERT_TRUE(workstationDatabases().add(static_cast<int>(ch), files[ch], "", error)) << error;
    ruvo_sdk::RefreshRuvoDbcInfo();
    const std::string header =
        testing_support::slurp(host.file("Ruvo/KELN_Ruvo_Include/RuvoManager/inc/database.h"));
    // Keywords, macros, the record's own members, odd characters and repeats all get names of
    // their own; the first of a repeated name keeps it.
    const size_t odd = header.find("// odd_names_5_Begin");
    ASSERT_NE(odd, std::string::npos) << header.substr(0, 2000);
    EXPECT_NE(header.find("namespace odd_names_CAN6 {\nstruct int_ {\n#define RUVO_DBC_SIGNAL(type, name) type "
                          "name = 0;\n    RUVO_DBC_SIGNAL(double, class_)\n    RUVO_DBC_SIGNAL(double, frame_)\n"
                          "    RUVO_DBC_SIGNAL(double, EOF_)\n    RUVO_DBC_SIGNAL(double, _1st_gear_x)\n"
                          "    RUVO_DBC_SIGNAL(double, int_2)\n    RUVO_DBC_SIGNAL(double, dup)\n"
                          "    RUVO_DBC_SIGNAL(double, dup_2)\n    RUVO_DBC_SIGNAL(double, _x)\n",
                          odd),
              std::string::npos)
        << header.substr(odd, 1500);
    EXPECT_NE(header.find("struct int_2 {", odd), std::string::npos);
    EXPECT_NE(header.find("::com.init_canfd(102, 12, &frame);", odd), std::string::npos) << "24 bytes: DLC 12";

    // Up to three plain messages of each database: every signal set to the value of raw 1.
    const std::string out = project.file("packed.txt");
    std::string body = "FILE* f = fopen(\"" + out + "\", \"w\");\n";
    std::vector<std::string> expected;
    for (const LoadedDatabase& db : workstationDatabases().entries()) {
        int taken = 0;
        for (const Message& m : db.database->messages) {
            if (!plain(m) || taken == 3) continue;
            ++taken;
            const std::string type = db.marker + "_CAN" + std::to_string(db.channel + 1) + "::" + m.codeName;
            body += "{\n  " + type + " r;\n";
            std::vector<uint8_t> payload(hostbridge::kDlcLengths[hostbridge::lengthToDlc(m.size)], 0);
            for (const Signal& s : m.signals) {
                const double value = rawToPhysical(s, 1);
                char v[40];
                std::snprintf(v, sizeof v, "%.17g", value);
                body += "  r." + s.codeName + " = " + v + ";\n";
                ASSERT_TRUE(encodeSignal(s, value, payload.data(), payload.size())) << m.name << "." << s.name;
            }
            body += "  fprintf(f, \"%d \", r.pack());\n"
                    "  for (int i = 0; i < r.frame.byteDataLen; ++i) fprintf(f, \"%02x\", r.frame.FData[i]);\n"
                    "  fprintf(f, \" %u %u\\n\", (unsigned)r.frame.Id, (unsigned)r.frame.canNo);\n}\n";
            expected.push_back("0 " + hex(payload.data(), payload.size()) + " " + std::to_string(m.id) + " " +
                               std::to_string(db.channel));
        }
        EXPECT_GT(taken, 0) << db.name;
    }
    body += "fclose(f);\n";

    ASSERT_EQ(ruvo_sdk::createRuvo("records", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("records"), 0);
    ASSERT_EQ(ruvo_sdk::setRuvoFuncCodeByName("records", "mainRun", body.data(), static_cast<unsigned>(body.size())),
              0);
    testing_support::CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("records", waiter.callback()), 0);
    const testing_support::CompileReport report = waiter.wait();
    ASSERT_EQ(report.result, CR_SUCCESS) << report.text.substr(0, 4000);
    ASSERT_EQ(ruvo_sdk::loadRuvoMp("records"), 0);
    ASSERT_EQ(ruvo_sdk::runRuvoFunc("records", "mainRun"), 0);

    std::istringstream lines(testing_support::slurp(out));
    std::string line;
    for (const std::string& want : expected) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line, want);
    }
    ruvo_sdk::unloadRuvoMp("records");
}

}  // namespace
