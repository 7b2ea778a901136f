// The Win32 cores of src/platform and the launcher's resources, checked in a
// real Windows program. It uses no Qt, since Debian has no Qt for Windows:
// run-wine-tests.sh builds it with mingw-w64 and runs it under Wine.
//
// Started with "--child MODE ..." it plays the program that the cores start.

#include "platform/elevation_wincore.h"
#include "platform/filemove_wincore.h"
#include "platform/processlist_wincore.h"
#include "platform/windowlookup_wincore.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{
    using Arguments = std::vector<std::wstring>;

    int passed = 0;
    int failed = 0;

    std::string utf8(const std::wstring &text)
    {
        const int size
            = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
        std::string bytes(static_cast<std::string::size_type>(size), '\0');
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr,
                            nullptr);
        return bytes;
    }

    void check(const char *group, const std::wstring &row, bool ok, const std::wstring &detail = {})
    {
        ok ? ++passed : ++failed;
        std::printf("%s %s: %s%s%s\n", ok ? "PASS" : "FAIL", group, utf8(row).c_str(), ok ? "" : " -- ",
                    ok ? "" : utf8(detail).c_str());
    }

    std::wstring joined(const Arguments &arguments)
    {
        std::wstring text;
        for (const std::wstring &argument : arguments)
            text += L"[" + argument + L"]";
        return text;
    }

    // Split as Qt's QCoreApplication::arguments() splits it on Windows.
    Arguments commandLineArguments()
    {
        int count = 0;
        wchar_t **list = CommandLineToArgvW(GetCommandLineW(), &count);
        Arguments arguments(list, list + count);
        LocalFree(list);
        return arguments;
    }

    std::wstring selfPath()
    {
        std::wstring path(MAX_PATH, L'\0');
        path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
        return path;
    }

    void removeTree(const std::wstring &path)
    {
        WIN32_FIND_DATAW entry;
        const HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &entry);
        if (find != INVALID_HANDLE_VALUE) {
            do {
                const std::wstring name = entry.cFileName;
                if (name == L"." || name == L"..")
                    continue;
                const std::wstring child = path + L"\\" + name;
                SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
                if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                    removeTree(child);
                else
                    DeleteFileW(child.c_str());
            } while (FindNextFileW(find, &entry));
            FindClose(find);
        }
        RemoveDirectoryW(path.c_str());
    }

    // Made anew for every run, so that no file of an earlier one is found.
    std::wstring workDirectory;

    bool writeFile(const std::wstring &path, const std::wstring &content, DWORD attributes = FILE_ATTRIBUTE_NORMAL)
    {
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, attributes, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return false;
        DWORD written = 0;
        const DWORD size = static_cast<DWORD>(content.size() * sizeof(wchar_t));
        const bool ok = WriteFile(file, content.data(), size, &written, nullptr) && written == size;
        CloseHandle(file);
        return ok;
    }

    std::wstring readFile(const std::wstring &path)
    {
        const HANDLE file
            = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return L"<unreadable>";
        std::wstring content(GetFileSize(file, nullptr) / sizeof(wchar_t), L'\0');
        DWORD read = 0;
        ReadFile(file, content.data(), static_cast<DWORD>(content.size() * sizeof(wchar_t)), &read, nullptr);
        CloseHandle(file);
        return content;
    }

    // A child started directly, for the cores that look at other processes.
    PROCESS_INFORMATION startChild(const std::wstring &program, const std::wstring &mode, HANDLE input = nullptr)
    {
        std::wstring line = Platform::Win32::commandLine({program, L"--child", mode});
        STARTUPINFOW startup;
        ZeroMemory(&startup, sizeof(startup));
        startup.cb = sizeof(startup);
        if (input) {
            startup.dwFlags = STARTF_USESTDHANDLES;
            startup.hStdInput = input;
        }
        PROCESS_INFORMATION process;
        ZeroMemory(&process, sizeof(process));
        CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, input != nullptr, 0, nullptr, nullptr, &startup,
                       &process);
        return process;
    }

    void endChild(PROCESS_INFORMATION &process)
    {
        TerminateProcess(process.hProcess, 0);
        WaitForSingleObject(process.hProcess, INFINITE);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }

    int runChild(const Arguments &arguments)
    {
        const std::wstring &mode = arguments.at(2);
        if (mode == L"echo") {
            // Everything after the output file, as this program received it.
            std::wstring content;
            for (std::size_t i = 4; i < arguments.size(); ++i)
                content += arguments[i] + L'\n';
            return writeFile(arguments.at(3), content) ? 0 : 1;
        }
        if (mode == L"exit")
            return std::stoi(arguments.at(3));
        if (mode == L"stdin")
            return Platform::Win32::stdinClosedByCaller() ? 1 : 0;
        Sleep(INFINITE);
        return 0;
    }

    Arguments splitLines(const std::wstring &text)
    {
        Arguments lines;
        std::wstring::size_type start = 0;
        for (std::wstring::size_type end; (end = text.find(L'\n', start)) != std::wstring::npos; start = end + 1)
            lines.push_back(text.substr(start, end - start));
        return lines;
    }

    void testElevatedArguments()
    {
        struct Row
        {
            const wchar_t *name;
            Arguments arguments;
        };
        const Row rows[] = {
            {L"drive root", {L"--source", L"C:\\staging", L"--dest", L"D:\\", L"--ignore", L"config.otml"}},
            {L"trailing backslash", {L"--dest", L"C:\\Games\\Hollowmere\\", L"--ignore", L"data.bin"}},
            {L"blanks", {L"--dest", L"C:\\Program Files (x86)\\Brindlewood Works\\Hollowmere PTR"}},
            {L"quotes", {L"say \"hi\"", L"a\\\"b", L"\"", L"\\\\server\\share\\"}},
            {L"empty values", {L"--source", L"C:\\Games", L"--dest", L"", L"--ignore", L""}},
            {L"non-ASCII and percent", {L"C:\\Spiele\\\u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c", L"%2", L"a\tb"}},
        };
        int index = 0;
        for (const Row &row : rows) {
            const std::wstring output = workDirectory + L"\\echo" + std::to_wstring(++index) + L".txt";
            Arguments arguments {L"--child", L"echo", output};
            arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
            const auto run = Platform::Win32::runElevated(selfPath(), arguments, 60000);
            const Arguments received = splitLines(readFile(output));
            check("elevated arguments", row.name,
                  run.outcome == Platform::Win32::ElevatedResult::Finished && run.exitCode == 0
                      && received == row.arguments,
                  L"sent " + joined(row.arguments) + L", received " + joined(received));
        }
    }

    void testElevatedOutcomes()
    {
        using Result = Platform::Win32::ElevatedResult;
        for (const unsigned long code : {0UL, 1UL, 42UL}) {
            const auto run
                = Platform::Win32::runElevated(selfPath(), {L"--child", L"exit", std::to_wstring(code)}, 60000);
            check("elevated outcome", L"exit code " + std::to_wstring(code),
                  run.outcome == Result::Finished && run.exitCode == code,
                  L"outcome " + std::to_wstring(run.outcome) + L", code " + std::to_wstring(run.exitCode));
        }

        const std::wstring sleeper = workDirectory + L"\\sleeper.exe";
        CopyFileW(selfPath().c_str(), sleeper.c_str(), FALSE);
        const auto stopped = Platform::Win32::runElevated(sleeper, {L"--child", L"sleep"}, 200);
        check("elevated outcome", L"time-out ends the program",
              stopped.outcome == Result::TimedOut && !Platform::Win32::firstProcessImagePath(L"sleeper.exe"),
              L"outcome " + std::to_wstring(stopped.outcome));

        // Run on a thread of its own: a modal box of the shell would block it,
        // and is closed from here so that the test goes on and fails.
        struct Call
        {
            std::wstring program;
            Result result;
        } call {workDirectory + L"\\missing.exe", {}};
        const HANDLE thread = CreateThread(
            nullptr, 0,
            [](void *data) -> DWORD {
                auto *c = static_cast<Call *>(data);
                c->result = Platform::Win32::runElevated(c->program, {}, 60000);
                return 0;
            },
            &call, 0, nullptr);
        const DWORD threadId = GetThreadId(thread);
        bool boxShown = false;
        while (WaitForSingleObject(thread, 100) == WAIT_TIMEOUT) {
            HWND box = nullptr;
            while ((box = FindWindowExW(nullptr, box, L"#32770", nullptr)) != nullptr) {
                if (GetWindowThreadProcessId(box, nullptr) == threadId) {
                    boxShown = true;
                    PostMessageW(box, WM_CLOSE, 0, 0);
                }
            }
        }
        CloseHandle(thread);
        check("elevated outcome", L"missing program is refused without a box",
              call.result.outcome == Result::Refused && !boxShown,
              boxShown ? L"a modal box was shown" : L"outcome " + std::to_wstring(call.result.outcome));
    }

    void testProcesses()
    {
        const std::wstring directory = workDirectory + L"\\Game Dir";
        const std::wstring game = directory + L"\\game.exe";
        CreateDirectoryW(directory.c_str(), nullptr);
        CopyFileW(selfPath().c_str(), game.c_str(), FALSE);
        PROCESS_INFORMATION child = startChild(game, L"sleep");

        struct Row
        {
            const wchar_t *name;
            const wchar_t *fileName;
            bool found;
        };
        const Row rows[] = {
            {L"running, exact name", L"game.exe", true},
            {L"name differs in case", L"GAME.exe", false},
            {L"no such process", L"absent.exe", false},
        };
        for (const Row &row : rows) {
            const auto image = Platform::Win32::firstProcessImagePath(row.fileName);
            const bool ok = row.found ? image && Platform::Win32::isSameExecutable(*image, game) : !image;
            check("processes", row.name, ok, L"image " + image.value_or(L"<none>"));
        }
        endChild(child);

        struct PathRow
        {
            const wchar_t *name;
            const wchar_t *expected;
            bool same;
        };
        const PathRow paths[] = {
            {L"same path", L"C:\\Games\\Hollowmere\\game.exe", true},
            {L"other letter case", L"c:\\GAMES\\hollowmere\\GAME.EXE", true},
            {L"slashes and dot steps", L"C:/Games/./Hollowmere/../Hollowmere/game.exe", true},
            {L"other directory", L"C:\\Games\\Ashfallow\\game.exe", false},
            {L"longer name", L"C:\\Games\\Hollowmere\\game.exe.old", false},
        };
        for (const PathRow &row : paths)
            check("same executable", row.name,
                  Platform::Win32::isSameExecutable(L"C:\\Games\\Hollowmere\\game.exe", row.expected) == row.same);
    }

    void testWindows()
    {
        WNDCLASSW windowClass;
        ZeroMemory(&windowClass, sizeof(windowClass));
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = L"LauncherWin32Test";
        RegisterClassW(&windowClass);
        const auto create = [](const wchar_t *title) {
            return CreateWindowExW(0, L"LauncherWin32Test", title, WS_OVERLAPPEDWINDOW, 0, 0, 200, 100, nullptr,
                                   nullptr, GetModuleHandleW(nullptr), nullptr);
        };
        const std::wstring title = L"Hollowmere \u2014 \u03a9\u03bc\u03ad\u03b3\u03b1 \u4e16\u754c";
        const std::wstring shownTitle = L"Ashfallow \u00e9t\u00e9";

        const HWND hidden = create(title.c_str());
        const HWND shown = create(shownTitle.c_str());
        ShowWindow(shown, SW_SHOWNOACTIVATE);

        struct Row
        {
            const wchar_t *name;
            std::wstring title;
            bool visible;
        };
        const Row rows[] = {
            {L"hidden window", title, false},
            {L"shown window, non-ASCII title", shownTitle, true},
            {L"title in other letter case", L"ASHFALLOW \u00c9T\u00c9", false},
            {L"start of the title only", L"Ashfallow", false},
            {L"no such window", L"Brindlewood", false},
        };
        for (const Row &row : rows)
            check("window lookup", row.name, Platform::Win32::isWindowVisible(row.title) == row.visible);

        // Same title, hidden, and above the shown one in the z-order.
        const HWND hiddenTwin = create(shownTitle.c_str());
        check("window lookup", L"hidden window above a shown one", Platform::Win32::isWindowVisible(shownTitle));
        ShowWindow(hidden, SW_SHOWNOACTIVATE);
        check("window lookup", L"hidden window once shown", Platform::Win32::isWindowVisible(title));
        DestroyWindow(hiddenTwin);
        DestroyWindow(shown);
        DestroyWindow(hidden);
    }

    void testFiles()
    {
        // Qt's directory walk on Windows skips an entry by its attribute
        // alone, which is why hiddenfiles_win.cpp adds no filter.
        struct Row
        {
            const wchar_t *name;
            DWORD attributes;
            bool hidden;
        };
        const Row rows[] = {
            {L".initcomplete", FILE_ATTRIBUTE_NORMAL, false},
            {L"marked.txt", FILE_ATTRIBUTE_HIDDEN, true},
        };
        for (const Row &row : rows) {
            const std::wstring path = workDirectory + L"\\" + row.name;
            writeFile(path, L"", row.attributes);
            const DWORD attributes = GetFileAttributesW(path.c_str());
            check("hidden files", row.name,
                  attributes != INVALID_FILE_ATTRIBUTES && ((attributes & FILE_ATTRIBUTE_HIDDEN) != 0) == row.hidden);
            SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        }

        using Platform::Win32::RenameOutcome;
        const std::wstring from = workDirectory + L"\\new.part";
        const std::wstring to = workDirectory + L"\\file.bin";
        writeFile(from, L"new");
        writeFile(to, L"old");
        check("file move", L"rename replaces the target",
              Platform::Win32::renameReplacing(from, to) == RenameOutcome::Renamed && readFile(to) == L"new"
                  && GetFileAttributesW(from.c_str()) == INVALID_FILE_ATTRIBUTES);
        check("file move", L"rename of a missing file fails",
              Platform::Win32::renameReplacing(from, to) == RenameOutcome::Failed && readFile(to) == L"new");
        check("file move", L"sync of a file, and of a missing one",
              Platform::Win32::syncFile(to) && !Platform::Win32::syncFile(from));

        struct InputRow
        {
            const wchar_t *name;
            bool pipe;
            bool closeWriter;
            DWORD closed;
        };
        const InputRow inputs[] = {
            {L"stdin pipe closed by the caller", true, true, 1},
            {L"stdin pipe still open", true, false, 0},
            {L"no stdin pipe", false, false, 0},
        };
        for (const InputRow &row : inputs) {
            SECURITY_ATTRIBUTES inherit {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
            HANDLE reader = nullptr;
            HANDLE writer = nullptr;
            if (row.pipe) {
                CreatePipe(&reader, &writer, &inherit, 0);
                SetHandleInformation(writer, HANDLE_FLAG_INHERIT, 0);
            } else {
                reader = CreateFileW(L"NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr);
            }
            if (row.closeWriter)
                CloseHandle(writer);
            PROCESS_INFORMATION child = startChild(selfPath(), L"stdin", reader);
            WaitForSingleObject(child.hProcess, INFINITE);
            DWORD code = 99;
            GetExitCodeProcess(child.hProcess, &code);
            check("file move", row.name, code == row.closed, L"child said " + std::to_wstring(code));
            endChild(child);
            CloseHandle(reader);
            if (row.pipe && !row.closeWriter)
                CloseHandle(writer);
        }
    }

    std::wstring versionString(const std::vector<char> &block, const wchar_t *key)
    {
        void *value = nullptr;
        UINT length = 0;
        const std::wstring path = std::wstring(L"\\StringFileInfo\\040904b0\\") + key;
        if (!VerQueryValueW(block.data(), path.c_str(), &value, &length) || length == 0)
            return L"<missing>";
        return std::wstring(static_cast<const wchar_t *>(value), length - 1);
    }

    std::string manifestText()
    {
        const HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(1), RT_MANIFEST);
        if (!resource)
            return {};
        const auto *data = static_cast<const char *>(LockResource(LoadResource(nullptr, resource)));
        return std::string(data, SizeofResource(nullptr, resource));
    }

    void testResources()
    {
        const std::wstring self = selfPath();
        std::vector<char> block(GetFileVersionInfoSizeW(self.c_str(), nullptr));
        GetFileVersionInfoW(self.c_str(), 0, static_cast<DWORD>(block.size()), block.data());
        // Read through the language block that Explorer reads.
        const wchar_t *const strings[][2] = {{L"CompanyName", L"Brindlewood Works"}, {L"FileVersion", L"1.0.0.0"}};
        for (const auto &row : strings) {
            const std::wstring value = versionString(block, row[0]);
            check("version record", row[0], value == row[1], L"got " + value);
        }
        VS_FIXEDFILEINFO *fixed = nullptr;
        UINT length = 0;
        check("version record", L"binary file version",
              VerQueryValueW(block.data(), L"\\", reinterpret_cast<void **>(&fixed), &length)
                  && fixed->dwFileVersionMS == 0x00010000 && fixed->dwFileVersionLS == 0);
        check("version record", L"icon", FindResourceW(nullptr, L"IDI_ICON1", RT_GROUP_ICON) != nullptr);

        int manifests = 0;
        EnumResourceNamesW(
            nullptr, RT_MANIFEST,
            [](HMODULE, LPCWSTR, LPWSTR, LONG_PTR count) -> BOOL {
                ++*reinterpret_cast<int *>(count);
                return TRUE;
            },
            reinterpret_cast<LONG_PTR>(&manifests));
        check("manifest", L"embedded once", manifests == 1, L"found " + std::to_wstring(manifests));
        const std::string manifest = manifestText();
        check("manifest", L"runs as the invoking user", manifest.find("level=\"asInvoker\"") != std::string::npos);
        // System-wide awareness ("true") leaves the window blurred on every
        // screen but the main one.
        check("manifest", L"declares per-monitor v2 awareness",
              manifest.find(">PerMonitorV2<") != std::string::npos && manifest.find(">true<") == std::string::npos);
    }
}

int main()
{
    const Arguments arguments = commandLineArguments();
    if (arguments.size() > 2 && arguments[1] == L"--child")
        return runChild(arguments);

    // Unbuffered, so that a row that hangs still leaves the earlier ones.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    workDirectory = std::wstring(temp) + L"launcher-win32";
    removeTree(workDirectory);
    CreateDirectoryW(workDirectory.c_str(), nullptr);
    testResources();
    testElevatedArguments();
    testElevatedOutcomes();
    testProcesses();
    testWindows();
    testFiles();
    removeTree(workDirectory);
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
