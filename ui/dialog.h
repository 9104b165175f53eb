// A thin dialog layer over the Win32 dialog manager: modal and modeless
// dialogs built from templates in ResourceModule(), virtual handlers, and data
// exchange between controls and members.
#pragma once
#include <windows.h>
#include <string>

// A control of a dialog, found by id. Every call on an unbound control does
// nothing and returns 0, FALSE or an empty string.
class CControl {
 public:
  CControl() = default;
  explicit CControl(HWND window) : window_(window) {}

  void Attach(HWND window) { window_ = window; }
  HWND GetSafeHwnd() const { return window_; }
  explicit operator bool() const { return window_ != nullptr; }

  void Show(bool show) const;
  bool IsVisible() const;
  void Enable(bool enable) const;
  bool IsEnabled() const;
  std::wstring GetText() const;
  void SetText(const std::wstring& text) const;
  // BST_CHECKED, BST_UNCHECKED or BST_INDETERMINATE.
  int GetCheck() const;
  void SetCheck(int state) const;
  void SetFocus() const;
  LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const;

 private:
  HWND window_ = nullptr;
};

// One run of DoDataExchange: save true copies controls into members, false
// pushes members into controls. failed is set when a control id is missing.
class CDataExchange {
 public:
  CDataExchange(HWND dialog, bool save) : dialog_(dialog), save_(save) {}
  bool Saving() const { return save_; }
  bool Failed() const { return failed_; }
  // The control with id; null (and the exchange marked failed) when missing.
  HWND Item(int id);

 private:
  HWND dialog_;
  bool save_;
  bool failed_ = false;
};

// Binds control to the dialog's item id (both directions).
void DDX_Control(CDataExchange& dx, int id, CControl& control);
// Window text of item id.
void DDX_Text(CDataExchange& dx, int id, std::wstring& value);
// Check state of a check box (0 unchecked, 1 checked, 2 indeterminate).
void DDX_Check(CDataExchange& dx, int id, int& value);
// Index of the checked button in the radio group that starts at firstId (the
// group runs until the next control with WS_GROUP); -1 when none is checked.
void DDX_Radio(CDataExchange& dx, int firstId, int& index);

class CDialog {
 public:
  explicit CDialog(UINT templateId = 0, HWND parent = nullptr);
  virtual ~CDialog();
  CDialog(const CDialog&) = delete;
  CDialog& operator=(const CDialog&) = delete;

  // Shows the dialog modally; the value given to EndDialog, or -1 when the
  // dialog could not be made (template missing).
  INT_PTR DoModal();
  // Creates the dialog modelessly as a child or owned window of parent;
  // FALSE when the window could not be made.
  virtual BOOL Create(UINT templateId, HWND parent);
  // Destroys a modeless dialog. Pages override this to refuse being left:
  // they return 0 and the window stays.
  virtual BOOL DestroyWindow();
  // Ends a modal dialog with result.
  void EndDialog(INT_PTR result);

  // Runs DoDataExchange; FALSE when a control was missing.
  BOOL UpdateData(BOOL save = TRUE);

  HWND GetSafeHwnd() const { return window_; }
  HWND GetDlgItem(int id) const;
  bool IsModal() const { return modal_; }
  std::wstring GetWindowText() const;
  void SetWindowText(const std::wstring& text) const;

 protected:
  virtual void DoDataExchange(CDataExchange& dx) { (void)dx; }
  // Pushes the members into the controls. TRUE lets the dialog manager pick
  // the focus.
  virtual BOOL OnInitDialog();
  // IDOK: a modal dialog saves its controls and ends with IDOK.
  virtual void OnOK();
  // IDCANCEL: a modal dialog ends with IDCANCEL.
  virtual void OnCancel();
  // A click on a button (or a menu or accelerator command) other than IDOK and
  // IDCANCEL; true when handled.
  virtual bool OnClicked(int id) { (void)id; return false; }
  // Any other message; set handled to answer it here.
  virtual INT_PTR OnMessage(UINT message, WPARAM wParam, LPARAM lParam, bool& handled);

 private:
  static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
  INT_PTR HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);

  UINT templateId_;
  HWND parent_;
  HWND window_ = nullptr;
  bool modal_ = false;
};
