' The connector automation object driven by Wine's script host, as an administrator's script
' drives it. Arguments: a staged file and a foreign file (full paths). One line per check; the
' exit code is the number of failed checks.
Option Explicit
Dim connector, started, failures
failures = 0

Sub Check(label, actual, expected)
    If CStr(actual) = CStr(expected) Then
        WScript.Echo "ok " & label
    Else
        WScript.Echo "FAIL " & label & ": got [" & actual & "], expected [" & expected & "]"
        failures = failures + 1
    End If
End Sub

Set connector = CreateObject("Talvorn.DorvaneConnectorDX2COM")
On Error Resume Next

connector.Run
Check "Run without a file fails", Err.Number <> 0, True
Err.Clear
connector.Run Null
Check "Run with Null fails", Err.Number <> 0, True
Err.Clear
connector.Run "Z:\nowhere\fehlt.txt"
Check "Run with a missing file", Err.Description, "The file ""Z:\nowhere\fehlt.txt"" does not exist."
Err.Clear
connector.DeleteMail "PR_ENTRYID", "0001", "PR_STORE_ENTRYID", "0002"
Check "DeleteMail without Outlook", Err.Description, "Outlook is not running: the mail cannot be deleted."
Err.Clear
started = connector.run(Array(WScript.Arguments(0), WScript.Arguments(1)))
Check "Run with a staged and a foreign file, error", Err.Number, 0
Check "Run with a staged and a foreign file", started, True

WScript.Quit failures
