// previewChanges against what applyChanges then does, on a study whose objects sit at several
// UTC offsets and in two character sets; values read back by pydicom.
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <algorithm>

using namespace fixtures;

namespace {

// The values of the attributes of an object as pydicom decodes them, by "(gggg,eeee)".
nlohmann::json pydicomValues(const std::string& path, const std::vector<std::string>& tags)
{
    std::string script = "import json, sys, pydicom\n"
                         "ds = pydicom.dcmread(sys.argv[1])\n"
                         "out = {}\n"
                         "for t in sys.argv[2:]:\n"
                         "    key = int(t[1:5] + t[6:10], 16)\n"
                         "    out[t] = str(ds[key].value) if key in ds else None\n"
                         "print(json.dumps(out))\n";
    std::vector<std::string> argv{"/usr/bin/python3", "-c", script, path};
    argv.insert(argv.end(), tags.begin(), tags.end());
    const RunResult r = run(argv);
    return nlohmann::json::parse(r.out, nullptr, false);
}

} // namespace

TEST(PreviewChanges, ShowsWhatTheRunThenDoesAndWritesNothing)
{
    TempDir root;
    const std::string study = root.file("study");
    mkdir(study.c_str(), 0755);
    ObjectSpec base;
    base.withPixelData = false;
    std::vector<ObjectSpec> specs = writeStudy(study, 2, 2, base);
    // IM2 at +0500, IM3 in Latin-1
    specs[1].timezoneOffset = "+0500";
    ASSERT_TRUE(writeObject(study + "/IM2", specs[1]));
    std::unique_ptr<DcmFileFormat> latin(makeObject(specs[2]));
    latin->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
    ASSERT_TRUE(latin->saveFile((study + "/IM3").c_str(), EXS_LittleEndianExplicit).good());
    const std::string kqr = root.file("edit.kqr");
    ASSERT_EQ(0, runBuilt("makeKqR", {"-z", "+0100", "-m", "PatientName=M\xc3\xbcller^Anna", "-m", "StudyDate=20200101",
                                      "-m", "StudyTime=003000", "-S", specs[2].seriesUID, "-m",
                                      "SeriesDescription=second", "-S", "9.9.9", "-m", "SeriesDescription=typo", kqr})
                     .status);
    std::map<std::string, std::string> before;
    for (const std::string& name : listDir(study))
        before[name] = readFile(study + "/" + name);

    RunResult r = runBuilt("previewChanges", {"--json", "-p", kqr, "-d", study});
    EXPECT_EQ(0, r.status) << r.err;
    const nlohmann::json preview = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_FALSE(preview.is_discarded()) << r.out;
    std::map<std::string, std::string> after;
    for (const std::string& name : listDir(study))
        after[name] = readFile(study + "/" + name);
    EXPECT_EQ(before, after); // nothing written, no .tmp
    // the fields the manual page documents, and no others
    auto keys = [](const nlohmann::json& object) {
        std::vector<std::string> names;
        for (auto it = object.begin(); it != object.end(); ++it)
            names.push_back(it.key());
        std::sort(names.begin(), names.end());
        return names;
    };
    EXPECT_EQ((std::vector<std::string>{"changeSetRefusal", "items", "kqrFile", "objects", "stopsAt", "summary"}),
              keys(preview));
    ASSERT_EQ(4u, preview["objects"].size());
    for (const nlohmann::json& object : preview["objects"])
        EXPECT_EQ((std::vector<std::string>{"changes", "matched", "path", "reason", "sopInstanceUID", "state"}),
                  keys(object));
    EXPECT_EQ((std::vector<std::string>{"level", "objects", "seriesUID", "uid"}), keys(preview["items"][0]));
    EXPECT_EQ((std::vector<std::string>{"change", "failed", "refused", "unchanged", "unmatchedItems"}),
              keys(preview["summary"]));
    EXPECT_EQ(nullptr, preview["stopsAt"]);
    EXPECT_EQ(1, preview["summary"]["unmatchedItems"]);
    EXPECT_EQ("9.9.9", preview["items"][1]["uid"]);
    EXPECT_EQ(0, preview["items"][1]["objects"]);

    r = runBuilt("applyChanges", {"-p", kqr, "-d", study});
    EXPECT_EQ(0, r.status) << r.err;
    // every new value of the preview is what the run wrote, object by object
    for (const nlohmann::json& object : preview["objects"])
    {
        SCOPED_TRACE(object["path"].get<std::string>());
        EXPECT_EQ("changes", object["state"]);
        std::vector<std::string> tags;
        for (const nlohmann::json& change : object["changes"])
            tags.push_back(change["tag"]);
        const nlohmann::json written = pydicomValues(object["path"], tags);
        for (const nlohmann::json& change : object["changes"])
            EXPECT_EQ(change["after"], written[change["tag"].get<std::string>()]) << change["tag"];
    }
    // the object at +0500 gets its own time
    const nlohmann::json& im2 = preview["objects"][size_t(std::find_if(preview["objects"].begin(), preview["objects"].end(),
                                                                       [&](const nlohmann::json& o) {
                                                                           return o["path"] == study + "/IM2";
                                                                       }) -
                                                          preview["objects"].begin())];
    EXPECT_NE(std::string::npos, im2.dump().find("\"after\":\"043000\"")) << im2.dump();


    // a refusal: the preview names the object a run stops at, and the run stops there
    ASSERT_EQ(0, chmod((study + "/IM4").c_str(), 0444));
    ASSERT_EQ(0, runBuilt("makeKqR", {"-m", "PatientName=Other", kqr}).status);
    r = runBuilt("previewChanges", {"-p", kqr, "-d", study});
    EXPECT_EQ(1, r.status);
    const std::string refusal = "Refusing to edit " + study + "/IM4: it is read-only (no write permission)";
    EXPECT_NE(std::string::npos, r.out.find(study + "/IM4: refused\n    " + refusal +
                                            "\n    a run would stop here: this object and the ones after it would "
                                            "stay as they are\n"))
        << r.out;
    EXPECT_NE(std::string::npos, r.out.find("; a run would stop at " + study + "/IM4\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(study + "/IM1 (SOP Instance UID " + specs[0].sopInstanceUID +
                                            "): matches study\n"))
        << r.out;
    r = runBuilt("applyChanges", {"-p", kqr, "-d", study});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find(refusal + "\nApplying soft edit changes to object failed: " + study +
                                            "/IM4\n"))
        << r.err;

    // trouble
    r = runBuilt("previewChanges", {"-p", root.file("missing.kqr"), "-d", study});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("Error loading KqR file " + root.file("missing.kqr") + "\n", r.err);
    r = runBuilt("previewChanges", {"-p", kqr});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("previewChanges: exactly one of -d and -o must be given\n", r.err);
}
