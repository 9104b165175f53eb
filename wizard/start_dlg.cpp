#include "wizard/start_dlg.h"

#include "res/resource.h"

CStartDlg::CStartDlg(HWND parent) : CDialog(IDD_START, parent) {}
