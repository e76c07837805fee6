// The text operations: the replacement walk with its guards, line dropping, and the two regular
// expression engines agreeing on every pattern the rules use.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "convert_support.h"
#include "converter/regex_engine.h"
#include "converter/text_rules.h"
#include "converter/var_rewrite.h"
#include "converter/vci_chain.h"

namespace {

using conv::RegexEngine;

const char* const kIdent = "[a-zA-Z0-9_]";

TEST(ReplaceAll, GuardsReplaceWholeIdentifiersOnly) {
    std::string text = " u8 u8x xu8 (u8) u8";
    conv::replaceAll(text, "u8", "uint8_t", kIdent, kIdent);
    EXPECT_EQ(text, " uint8_t u8x xu8 (uint8_t) uint8_t");
}

TEST(ReplaceAll, ReplacementHoldingTheSearchedTextMakesNoLoop) {
    std::string text = "aa";
    conv::replaceAll(text, "a", "aa");
    EXPECT_EQ(text, "aaaa");
    conv::replaceAll(text, "", "x");
    EXPECT_EQ(text, "aaaa");
}

// Kept: the neighbour in front is not tested at position 1, but is at position 0 (against the
// character in front of the text, which no guard of identifiers matches).
TEST(ReplaceAll, PositionOneSkipsTheTestInFront) {
    std::string one = "xab";
    conv::replaceAll(one, "ab", "Z", "x");
    EXPECT_EQ(one, "xZ");
    std::string two = "yxab";
    conv::replaceAll(two, "ab", "Z", "x");
    EXPECT_EQ(two, "yxab");
    std::string zero = "ab";
    conv::replaceAll(zero, "ab", "Z", kIdent);
    EXPECT_EQ(zero, "Z");
    std::string nul = "ab";
    conv::replaceAll(nul, "ab", "Z", "[\\s\\S]");
    EXPECT_EQ(nul, "ab") << "the character in front of position 0 is tested too";
}

// Kept: the neighbour behind is tested only when one more character follows it.
TEST(ReplaceAll, LastCharacterBehindIsNotTested) {
    std::string text = "u8xy u8x";
    conv::replaceAll(text, "u8", "T", "", kIdent);
    EXPECT_EQ(text, "u8xy Tx");
}

TEST(ReplaceAll, PositionsAreThoseOfTheTextAsReplacedSoFar) {
    // The second "ab" stands at 3, but at 1 once the first went: exempt from the test in front.
    std::string text = "abxab";
    conv::replaceAll(text, "ab", "", "x");
    EXPECT_EQ(text, "x");
}

TEST(DropLines, EmptiesTheLineAndKeepsItsEnd) {
    std::string text = "a\n  std::cout << 1;\r\nb std::x\nc";
    conv::dropLines(text, "std::");
    EXPECT_EQ(text, "a\n\r\n\nc");
}

TEST(Regex, ReplacementFormat) {
    EXPECT_EQ(conv::regexReplace("k=v;", "(\\w)=(\\w)", "$2$$$1$&$9"), "v$kk=v$9;");
    EXPECT_EQ(conv::regexReplace("abc", "x*", "-"), "-a-b-c-");
    EXPECT_THROW(conv::Regex("("), std::runtime_error);
}

// A pathological line gets a clear error or its result, never a stack overflow.
TEST(Regex, MegabyteLine) {
    std::string line(1 << 20, 'a');
    EXPECT_NO_THROW(conv::dropLines(line, "LOCAL_VAR_BEGIN"));
    EXPECT_EQ(line.size(), 1u << 20);
    std::string braces = std::string(1 << 20, '(') + "\n";
    try {
        braces = conv::regexReplace(braces, "var.(g|s)et_system_var_[\\w\\d]+\\(\"(.+)\"\\,", "");
        braces = conv::regexReplace(braces, "if \\(\\((.+)\\+(.+)\\) <= vrecv", "");
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("gave up"), std::string::npos) << e.what();
    }
}

class EngineGuard {
public:
    explicit EngineGuard(RegexEngine e) { conv::setRegexEngine(e); }
    ~EngineGuard() { conv::setRegexEngine(RegexEngine::Pcre2); }
};

struct Sample {
    const char* pattern;
    const char* text;
    const char* format;
};

// Every pattern the conversion rules use, each on a text it matches and one that tempts it.
const Sample kSamples[] = {
    {"PATH\\(\"(.+?)\"\\)", "f(PATH(\"a/b.csv\"), PATH(\"c\"));\nPATH(\"\")", "<$1>"},
    {"#include \".+\"", "#include \"a.h\" x\n#include \"\"\n#include <b.h>", ""},
    {"#include <.+>", "#include <a.h>\n#include <>\n", ""},
    {"int mainRun\\(\\)\\{", "void mainRun(){\nint mainRun(){ int mainRun() {", "H"},
    {"int\\s+[a-zA-Z_]\\w*\\s*\\(\\s*\\)\\s*\\{", "int\n f ( )\n{ int g(int){ int 9a(){", "H"},
    {"void (.+?)uds_func_(.+)", "void App_uds_func_a() {\nvoid uds_func_b()\n", "[$1|$2]"},
    {"void State_Func_(.+)", "void State_Func_x() {\n void State_Func_", "[$1]"},
    {"(.+?)uds_func_(.+)", "  App_uds_func_a();\nuds_func_b();\n x uds_func_c ( );", "[$1|$2]"},
    {"State_Func_(.+)", "  State_Func_a ();\nState_Func_\n", "[$1]"},
    {"extern\\s*\"C\"\\s*\\{([^\\}]+)\\}", "extern \"C\"{\nint f();\n}\nextern\"C\" {} extern \"C\"\n{a}", "<$1>"},
    {"(.*)__declspec\\(dllexport\\) (.+)\\(\\);", "\nint  __declspec(dllexport) main();\nvoid __declspec(dllexport) f(int a);\n", "<$1|$2>"},
    {"KelnBigMsg (.+) = ", "KelnBigMsg m = x; KelnBigMsg n = y;\nKelnBigMsg  = z;", "<$1>"},
    {"[^\\n]*big[^\\n]*\\n?", "a big\nbig.len = 1;\nsmall\nbig", ""},
    {".*LOCAL_VAR_BEGIN.*", "#define LOCAL_VAR_BEGIN\r\nLOCAL_VAR_BEGIN\nx", ""},
    {"var.(g|s)et_system_var_[\\w\\d]+\\(\"(.+)\"\\,",
     "var.get_system_var_int32(\"a.b\",&x); var.set_system_var_uint8_array(\"c\", 8, p);\nvarxset_system_var_(\"d\",", "<$1|$2>"},
    {"(.*)\\);", "&x); y);\nz", "<$1>"},
    {".* a.b.*=.*", "  double a_b = 0;\n a.b=1\nb.a = 2", ""},
    {"var.set_system_var_string\\(\"(.+)\",(.+)\\);", "var.set_system_var_string(\"a\",(char*)&b[0]);", "<$1|$2>"},
    {"var.set_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+),(.+)\\);", "var.set_system_var_uint8_array(\"a\", 8, (u8*)&v[2]);", "<$1|$2|$3>"},
    {"var.set_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+)\\);", "var.set_system_var_double(\"a\",x);", "<$1|$2>"},
    {"vrecv->MessageData\\[(\\d+)\\]", "(char*)&vrecv->MessageData[12] vrecv->MessageData[x]", "<$1>"},
    {"&(.+)\\[", "&a[0] &b[c[1]]", "<$1>"},
    {"var.get_system_var_string\\(\"(.+)\",(.+)\\);", "var.get_system_var_string(\"a\", (char*)&a[0]);", "<$1|$2>"},
    {"var.get_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+),(.+)\\);", "var.get_system_var_int64_array(\"a\",&varlen,x);", "<$1|$2|$3>"},
    {"var.get_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+)\\);", "var.get_system_var_int32(\"a\",&x);", "<$1|$2>"},
    {"(?:\\([^)]*\\)\\s*)?&([A-Za-z_]\\w*)\\[", "(char*) &name[0] &9x[", "<$1>"},
    {"ecuinfo\\.uds\\.protocol\\.docan\\.use_fun_addr\\s*=\\s*(true|false);", "ecuinfo.uds.protocol.docan.use_fun_addr = true;", "<$1>"},
    {"ecuinfo.appconfig.channel\\s*=\\s*(.+);", "ecuinfo.appconfig.channel = 2;\necuinfo.appconfig.channel=x+1;", "<$1>"},
    {"ecuinfo.uds.p2time\\s*=\\s*(.+);", "ecuinfo.uds.p2time = 50;", "e.P2Timeout=$1;"},
    {"uint8_t recv.+;", "uint8_t recvbuf[64];\nuint8_t recv;", "rlen = rcvmax;"},
    {"com.send_and_recv_uds_msg\\(&ecuinfo, vsend, vrecv, .+\\)", "ret = com.send_and_recv_uds_msg(&ecuinfo, vsend, vrecv, 100);", "X"},
    {"com.send_uds_async\\(&ecuinfo,(.+?),(.+?),(.+?)\\)", "com.send_uds_async(&ecuinfo,vsend,100,5);", "uds_SendCycle(&e,send,slen,$2,$3)"},
    {"if \\(\\((.+)\\+(.+)\\) <= vrecv->MessageLen\\)\\s*\\{\\s*var\\.set_system_var_uint8_array\\(\"(.+)\", (.+), \\(uint8_t\\*\\)&vrecv->MessageData\\[(.+)\\]\\);\\s*clog\\.info\\(\"set_system_var_uint8_array:\"\\);\\s*\\}",
     "if ((3+4) <= vrecv->MessageLen) {\n  var.set_system_var_uint8_array(\"a_b\", 4, (uint8_t*)&vrecv->MessageData[3]);\n  clog.info(\"set_system_var_uint8_array:\");\n}",
     "if(rlen>=$1+$2) memcpy((uint8_t*)&$3[0],(uint8_t*)rcv+$1,$2);"},
    {"if\\(!is_success && memcmp\\(&(.+)\\[(.+)\\],(.+),sizeof\\((.+)\\)\\)==0\\)", "if(!is_success && memcmp(&r[1],k,sizeof(k))==0)", "<$2|$3>"},
    {"com\\.set_dev_buzz\\(\\s*[^,]+,", "com.set_dev_buzz( 1, 2,3);", "hal_SetBuzzer("},
    {"ButtonType btns\\[\\] = \\{ BT_OK \\};com.show_procedure_box.*", "ButtonType btns[] = { BT_OK };com.show_procedure_box(\"a\");", "W"},
    {"var\\.get_system_var_uint8_array\\(\"(.+?)\",&varlen,(.+?)\\);", "var.get_system_var_uint8_array(\"a\",&varlen,b);", "memcpy((uint8_t*)$2,$1,varlen);"},
    {"\\n\\s*\\n", "a\n\n  \n\t\nb\n\nc", "\n"},
};

TEST(RegexEngines, AgreeOnEveryPatternOfTheRules) {
    for (const Sample& s : kSamples) {
        std::string viaPcre;
        std::string viaStd;
        {
            viaPcre = conv::regexReplace(s.text, s.pattern, s.format);
        }
        {
            EngineGuard useStd(RegexEngine::Std);
            viaStd = conv::regexReplace(s.text, s.pattern, s.format);
        }
        EXPECT_EQ(viaPcre, viaStd) << s.pattern;
        EXPECT_NE(viaPcre, s.text) << "the sample does not exercise " << s.pattern;
    }
}

// The whole own chain and the variable rewriting over the golden inputs, with both engines.
TEST(RegexEngines, AgreeOnTheGoldenConversions) {
    convert_test::defineVariables();
    const std::string dir = std::string(RUVO_TEST_DATA_DIR) + "/convert/";
    for (const char* name : {"vars/self_copy.in", "vars/buffers.in", "vars/gets.in", "steps/frame.in",
                             "steps/functions.in"}) {
        const std::string input = testing_support::slurp(dir + name);
        ASSERT_FALSE(input.empty()) << name;
        std::string results[2];
        for (int e = 0; e < 2; ++e) {
            EngineGuard engine(e == 0 ? RegexEngine::Pcre2 : RegexEngine::Std);
            std::string text = input;
            for (const std::string& d : conv::rewriteVariables(text)) text += d;
            conv::ChainState state = conv::makeChainState("App", "mainRun");
            results[e] = conv::runChain(conv::vciChain(), text, state);
        }
        EXPECT_EQ(results[0], results[1]) << name;
    }
}

}  // namespace
