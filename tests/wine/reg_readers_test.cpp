// ProcessRegReaders without a RegReaders table or a session (its rows: smart_card_types_test).
#include <gtest/gtest.h>

#include "library.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

// Both fail with the thread's last error, and no smart-card type is registered.
TEST(ProcessRegReadersTest, WithoutRegReadersTableFailsWithTheLastError) {
    TestPackage package;
    package.AddStandardTables();
    package.AddRegistryComponent(L"nvcsp", false);
    package.SetProperty(L"DefaultCSP80Name", L"Norvane CSP");
    package.Commit();
    TestSession session(package);
    session.Cost();
    const SetupUtilsLibrary library;
    const MessageRecorder messages;
    const UINT result = library.Action("ProcessRegReaders")(session.get());
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_ERROR),
              (std::vector<std::vector<std::wstring>>{
                  {L"666", L"ProcessRegReaders", L"ProcessRegReaders fail", std::to_wstring(result)}}));
    EXPECT_TRUE(session.Rows(L"SELECT `Registry` FROM `Registry`").empty());
    SetLastError(12345);
    EXPECT_EQ(library.Action("ProcessRegReaders")(0), 12345u);
}

} // namespace
} // namespace harness
