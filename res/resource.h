// Resource numbers. The numbers are fixed: packages and tests rely on them.
#pragma once

// String table
#define IDS_PRODUCT_NAME        1    // "Quillmark 8"
#define IDS_CAPTION             2    // "Quillmark Setup"
#define IDS_PRODUCT_SHORT       3    // "Quillmark"
#define IDS_CLOSE_COPIES        4
#define IDS_CONFIRM_UNINSTALL   6
#define IDS_ACCEPT_CAPTION      7
#define IDS_FINISH              8
#define IDS_INSTALLED_OK        9
#define IDS_PRESS_FINISH        10
#define IDS_CONFIRM_CANCEL      11
#define IDS_BROWSE_TITLE        12
#define IDS_INVALID_FOLDER      13
#define IDS_OLDER_GENERATION    14
#define IDS_SETUP_ABORTED       15
#define IDS_OLDER_VERSION       16
#define IDS_SAME_VERSION        17
#define IDS_PACKAGE_DAMAGED     18
#define IDS_FOLDER_HAS_COPY     19
#define IDS_UNINSTALLED         20
#define IDS_YES                 21
#define IDS_NO                  22
#define IDS_GROUP_TOO_SHORT     23
#define IDS_GROUP_IS_STARTUP    24
#define IDS_PORTABLE_HINT       26
#define IDS_PORTABLE_NO_FOLDER  27
#define IDS_PORTABLE_RUN_HINT   28
#define IDS_RESTART_NEEDED      30
#define IDS_RESTART_ON_FINISH   31
#define IDS_CLOSE_ONE_COPY      33
#define IDS_SFX_UNPACKING       34   // the single file's progress window
#define IDS_SFX_UNPACK_FAILED   35
#define IDS_HELP_SHORTCUT       101  // "Quillmark 8 Help"

// Bitmap, icon
#define IDB_WIZARD              101
#define IDI_SETUP               128

// Dialog templates
#define IDD_SETUP               103  // wizard frame
#define IDD_AGREEMENT           104
#define IDD_INTRO               105
#define IDD_FOLDER              106
#define IDD_GROUP               107
#define IDD_START               108

// Frame 103
#define IDC_BACK                3
#define IDC_PICTURE             1002
// Agreement 104
#define IDC_AGREEMENT_TEXT      1000
// Welcome 105
#define IDC_WELCOME_VERSION     1003
// Folder 106
#define IDC_TYPE_USER           1001
#define IDC_TYPE_ALL            1002
#define IDC_TYPE_PORTABLE       1003
#define IDC_BROWSE              1005
#define IDC_FOLDER_HINT         1006
#define IDC_DEST_FOLDER         1013
// Group 107
#define IDC_GROUP_NAME          1000
#define IDC_AUTOSTART           1008
#define IDC_DESKTOP_ICON        1009
// Start 108
#define IDC_INSTALLING          1009
#define IDC_READY               1010
#define IDC_READY_HINT          1011
#define IDC_RUN_AFTER           1012
