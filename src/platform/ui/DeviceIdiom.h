#pragma once

// Which layout family the screens use. The desktop is a tablet unless the user asks for the
// phone layout (small touch screens) when starting the application.

namespace platform {

enum class UserInterfaceIdiom { phone, pad };

UserInterfaceIdiom userInterfaceIdiom();
// Set once at start-up, before any screen is created.
void setUserInterfaceIdiom(UserInterfaceIdiom idiom);

}  // namespace platform
