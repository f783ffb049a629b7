// Test bed of the client configuration: the product's registry tree, the
// client's shared folder with the stand-in modutil, browser profiles under
// the application-data folder, and scripted answers to the questions.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/Exports.h"
#include "support/TestProcess.h"
#include "support/TestSession.h"

namespace zktest {

inline const std::string kMiddlewareKey = "Software\\Brevant\\Zenkey\\MIDDLEWARE";

// Where the library looks for the client's shared folder, the tool and the partition application.
inline std::string sharedFolder() { return env("CommonProgramFiles") + "\\brevant shared\\zenkey\\Keyhub\\"; }
inline std::string modutilPath() { return sharedFolder() + "modutil\\modutil.exe"; }
inline std::string partitionApp() { return sharedFolder() + "DuoStore Partition\\DuoStorePartition.exe"; }
inline std::string appDataFolder() { return env("APPDATA"); }

void touchFile(const std::string& path);  // with its folders

// The actions that write the settings from properties: PKIInstall reads
// numbers by formatted extraction, the others read text and use atoi;
// CoreStoreProps alone logs what it stored and leaves the browsers alone.
struct Reader { const char* op; UINT(WINAPI* action)(MSIHANDLE); bool text, logsStored; };
inline const Reader kReaders[] = {{"PKIInstall", PKIInstall, false, false},
                                  {"PKIRegInstall", PKIRegInstall, true, false},
                                  {"CoreStoreProps", CoreStoreProps, true, true}};

// Answers each question with the next scripted answer (IDOK when the script
// is exhausted) and records the questions; `onQuestion` runs before answering.
struct Questions {
    static void script(TestSession& session, std::vector<int> answers);
    static const std::vector<std::string>& asked();
    static std::function<void(int index)> onQuestion;
};

// Resets Software\Brevant, and removes the shared folder, the stand-in's
// record and the browser vendor folders, before and after each test.
class ConfigTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override { clean(); }
    void clean();

    void installModutil();
    // Creates `relative` (below the application data folder) with a secmod.db; returns its folder.
    std::string profile(const std::string& relative);
    std::vector<std::string> commands() const;  // the stand-in's record, one command line each

    static std::optional<DWORD> number(const std::string& group, const std::string& name);
    static std::optional<std::string> text(const std::string& group, const std::string& name);

    std::string record_;
};

}  // namespace zktest
