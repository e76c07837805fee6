#pragma once
// C++ source text from an applet's model. Stateless: each call fills an AppPacket.

#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/AppPacket.h"
#include "model/RuvoFunction.h"

class RUVO_API CppCodeGenerator {
public:
    using Vars = std::vector<Parameter>;
    using Funcs = std::list<RuvoFunction>;

    // One header and one source per function.
    AppPacket generateMultiFiles(const Vars& vars, const Funcs& funcs);
    // The whole applet in "singleapp.cpp"; nothing without a main-run function.
    AppPacket generateSingleFile(const Vars& vars, const Funcs& funcs, int editType);
    // Sequence roots with their dependencies in one file each; the rest per function.
    AppPacket generateSequenceCombineFiles(const Vars& vars, const Funcs& funcs);
    // Writes `content` to `path`; raises std::runtime_error naming the file on failure.
    void generateResourceFile(const std::string& path, const std::string& content);

    // Where a function's body stands in the "singleapp.cpp" text of generateSingleFile:
    // lines firstLine .. firstLine + lineCount - 1, counted from 1 by "\n".
    struct BodyLines {
        std::string function;
        int firstLine = 0;
        int lineCount = 0;
    };
    // The bodies of the single file in line order, so a compiler's line can be told back as a
    // line of the function the author wrote. Empty when there is no single file.
    std::vector<BodyLines> singleFileBodyLines(const Vars& vars, const Funcs& funcs, int editType);

private:
    friend class CppCodeGeneratorTest;

    std::string getGenernalHeader() const;
    std::string getDefineVars(const Vars& vars) const;
    std::string getDefineVarsStatement(const Vars& vars) const;
    std::string getMainContentH(const Funcs& funcs) const;
    std::string getMainContentCpp(const Vars& vars, const Funcs& funcs) const;
    std::string getDependFuncsHeader(const std::list<std::string>& deps, const Funcs& funcs) const;

    void generateFiles(const Vars& vars, const Funcs& funcs, AppPacket& packet);
    void generateFile(const Vars& vars, const Funcs& funcs, AppPacket& packet, int editType);
    // The single file's text, false when there is none; with `bodies`, also where the bodies
    // landed. One composition for both, so the line map cannot drift from the text.
    bool composeSingleFile(const Vars& vars, const Funcs& funcs, int editType, std::string& text,
                           std::vector<BodyLines>* bodies) const;
    void dfs(const RuvoFunction& func, std::map<std::string, bool>& visited,
             std::list<RuvoFunction>& order, const Funcs& funcs);
    void joinInitFunction(const RuvoFunction& func, std::string& text) const;
    std::string extractFilteredHeaders(const std::string& text) const;
    void generateCombineFiles(const Vars& vars, const Funcs& seqFuncs, AppPacket& packet);
    void generateCombineFilesEx(const Vars& vars, const Funcs& funcs, AppPacket& packet);

    // The per-function header and source of the multi-file layout, shared by two layouts.
    void addFunctionFiles(const Vars& vars, const Funcs& funcs, const RuvoFunction& f,
                          bool hasGlobal, AppPacket& packet) const;
    // "#include" lines of every function's depend heads, sorted, minus the excluded names.
    static std::string collectHeaders(const Funcs& funcs, const std::set<std::string>& excluded);
};
