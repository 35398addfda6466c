#include "BrowserHarness.h"

#include "SorviApp/views/AISettingsView.h"

#include <QLineEdit>
#include <QPushButton>

// With no secret store to reach, the tab says so and offers no field that would keep a
// key anywhere else. The bus is pointed nowhere before anything in this program uses it.
TEST(AISettingsView, WithoutAKeyringOffersNowhereForAKey)
{
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/sorvi-bus");
    AISettingsView tab;
    tab.resize(540, 480);
    tab.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return tab.isIdle(); }, 20'000));
    EXPECT_TRUE(tab.findChild<QLabel *>("noKeyring")->isVisibleTo(&tab));
    EXPECT_FALSE(tab.findChild<QLineEdit *>("key")->isEnabled());
    EXPECT_FALSE(tab.findChild<QPushButton *>("removeKey")->isVisibleTo(&tab));
    saveScreenshot(tab.grab().toImage(), "settings-ai-no-keyring");
}
