// The Win32 cores of src/platform and the launcher's resources in a real Windows program without Qt (Debian has
// no Qt for Windows), built and run under Wine by run-wine-tests.sh. "--child MODE ..." plays a started program.

#include "platform/elevation_wincore.h"
#include "platform/filemove_wincore.h"
#include "platform/processlist_wincore.h"
#include "platform/regularfile_wincore.h"
#include "platform/windowlookup_wincore.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace
{
    namespace Win = Platform::Win32;
    using Arguments = std::vector<std::wstring>;

    int failed = 0;
    std::wstring self(MAX_PATH, L'\0');
    bool windowMade = false;
    // After the mode: trailing backslashes that could swallow the next argument, blanks, quotes, empties, non-ASCII.
    const Arguments Awkward({L"--child", L"echo", L"D:\\",
                             L"C:\\Program Files (x86)\\Brindlewood Works\\Hollowmere PTR\\", L"", L"say \"hi\"",
                             L"a\\\"b", L"\"", L"\\\\server\\share\\",
                             L"C:\\Spiele\\\u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c", L"%2", L"a\tb", L""});

    void check(const char *row, bool ok)
    {
        failed += ok ? 0 : 1;
        std::printf("%s %s\n", ok ? "PASS" : "FAIL", row);
    }

    // Standard input set to a pipe whose writer is "closed", one still "open", or NUL.
    bool stdinClosed(const std::wstring &input)
    {
        HANDLE reader = nullptr;
        HANDLE writer = nullptr;
        if (input.empty())
            reader = CreateFileW(L"NUL", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        else if (CreatePipe(&reader, &writer, nullptr, 0) && input == L"closed")
            CloseHandle(std::exchange(writer, nullptr));
        SetStdHandle(STD_INPUT_HANDLE, reader);
        const bool closed = Win::stdinClosedByCaller();
        CloseHandle(reader);
        CloseHandle(writer);
        return closed;
    }
}

int main()
{
    // Split as Qt's QCoreApplication::arguments() splits it on Windows.
    int count = 0;
    wchar_t **list = CommandLineToArgvW(GetCommandLineW(), &count);
    const Arguments arguments(list, list + count);
    LocalFree(list);
    if (arguments.size() > 2 && arguments[1] == L"--child") {
        // An exit code that is no default, and only for the arguments as sent.
        if (arguments[2] == L"echo")
            return Arguments(arguments.begin() + 1, arguments.end()) == Awkward ? 42 : 1;
        Sleep(INFINITE);
    }

    // Unbuffered, so that a row that hangs still leaves the earlier ones.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    self.resize(GetModuleFileNameW(nullptr, self.data(), MAX_PATH));
    const std::wstring directory = self.substr(0, self.find_last_of(L'\\'));
    const HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(1), RT_MANIFEST);
    const std::string manifest = resource
        ? std::string(static_cast<const char *>(LockResource(LoadResource(nullptr, resource))),
                      SizeofResource(nullptr, resource))
        : std::string();
    // System-wide awareness ("true") leaves the window blurred on every screen but the main one.
    check("resources: icon, version record, manifest as invoker with per-monitor awareness",
          FindResourceW(nullptr, L"IDI_ICON1", RT_GROUP_ICON) && GetFileVersionInfoSizeW(self.c_str(), nullptr) > 0
              && manifest.find("level=\"asInvoker\"") != std::string::npos
              && manifest.find(">PerMonitorV2<") != std::string::npos && manifest.find(">true<") == std::string::npos);

    // The code is set only for a program that finished.
    check("elevation: arguments and exit code come through", Win::runElevated(self, Awkward, 60000).exitCode == 42);
    const std::wstring sleeper = directory + L"\\sleeper.exe";
    CopyFileW(self.c_str(), sleeper.c_str(), FALSE);
    check("elevation: time-out ends the program",
          Win::runElevated(sleeper, {L"--child", L"sleep"}, 200).outcome == Win::ElevatedResult::TimedOut
              && !Win::firstProcessImagePath(L"sleeper.exe"));

    // A box of the shell would block the call: the hook records it and keeps it from being made.
    const HHOOK hook = SetWindowsHookExW(
        WH_CBT,
        [](int code, WPARAM wParam, LPARAM lParam) -> LRESULT {
            windowMade = windowMade || code == HCBT_CREATEWND;
            return code == HCBT_CREATEWND ? 1 : CallNextHookEx(nullptr, code, wParam, lParam);
        },
        nullptr, GetCurrentThreadId());
    const auto missing = Win::runElevated(directory + L"\\missing.exe", {}, 60000);
    UnhookWindowsHookEx(hook);
    check("elevation: missing program is refused without a box",
          missing.outcome == Win::ElevatedResult::Refused && !windowMade);

    // This very program is the only one of its name while no child runs.
    const auto image = Win::firstProcessImagePath(L"tst_windows_win32.exe");
    check("processes: found by the exact name only",
          image && Win::isSameExecutable(*image, self) && !Win::firstProcessImagePath(L"TST_WINDOWS_WIN32.exe"));
    const auto same
        = [](const wchar_t *path) { return Win::isSameExecutable(L"C:\\Games\\Hollowmere\\game.exe", path); };
    check("same executable: despite letter case, slashes and dot steps, not another directory or longer name",
          same(L"c:\\GAMES\\hollowmere\\GAME.EXE") && same(L"C:/Games/./Hollowmere/../Hollowmere/game.exe")
              && !same(L"C:\\Games\\Ashfallow\\game.exe") && !same(L"C:\\Games\\Hollowmere\\game.exe.old"));

    const std::wstring title = L"Hollowmere \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c";
    // The hidden twin is made last, so that it lies above the shown one in the z-order.
    const wchar_t *titles[] = {L"Ashfallow \u00e9t\u00e9", title.c_str(), title.c_str()};
    for (int i = 0; i < 3; ++i)
        CreateWindowExW(0, L"STATIC", titles[i], WS_OVERLAPPEDWINDOW | (i == 1 ? WS_VISIBLE : 0), 0, 0, 200, 100,
                        nullptr, nullptr, nullptr, nullptr);
    check("window lookup: a shown window's exact title, not a hidden one, another letter case or a prefix",
          Win::isWindowVisible(title) && !Win::isWindowVisible(L"Ashfallow \u00e9t\u00e9")
              && !Win::isWindowVisible(L"HOLLOWMERE" + title.substr(10)) && !Win::isWindowVisible(L"Hollowmere"));

    const std::wstring from = directory + L"\\new.part";
    const std::wstring to = directory + L"\\file.bin";
    check("file move: rename replaces the target; a missing file is neither renamed nor synced",
          CopyFileW(self.c_str(), from.c_str(), FALSE) && CopyFileW(self.c_str(), to.c_str(), FALSE)
              && Win::renameReplacing(from, to) == Win::RenameOutcome::Renamed
              && Win::renameReplacing(from, to) == Win::RenameOutcome::Failed && Win::syncFile(to)
              && !Win::syncFile(from));
    const std::wstring empty = directory + L"\\empty.bin";
    CloseHandle(CreateFileW(empty.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    check("read-ahead: asked for a file, not for an empty one, a folder or a missing file",
          Win::prefetchFileStart(to, 1 << 20) && !Win::prefetchFileStart(empty, 1 << 20)
              && !Win::prefetchFileStart(directory, 1 << 20) && !Win::prefetchFileStart(from, 1 << 20));
    check("stdin: closed by the caller only if the pipe's writer is",
          stdinClosed(L"closed") && !stdinClosed(L"open") && !stdinClosed(L""));

    DeleteFileW(sleeper.c_str());
    DeleteFileW(to.c_str());
    DeleteFileW(empty.c_str());
    std::printf("%d failed\n", failed);
    return failed == 0 ? 0 : 1;
}
