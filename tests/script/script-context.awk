# Reads the trace of msiexec (WINEDEBUG=+msi,+relay with the relay limited to
# msi.*) and prints each call a deferred, rollback or commit custom action
# makes that a real installation script does not serve: a property other than
# CustomActionData, ProductCode and UserSID, or an installer function other
# than those for messages, records and the run mode.

# The engine starts an action: its name and type (hexadecimal; 0x400 is set
# for deferred, rollback and commit actions).
/Handling custom action L"/ {
    action = $0
    sub(/.*Handling custom action L"/, "", action)
    type = action
    sub(/".*/, "", action)
    sub(/^[^(]*\(/, "", type)
    sub(/ .*/, "", type)
    deferred = length(type) >= 3 && index("4567cdef", substr(type, length(type) - 2, 1)) > 0
    next
}
# The custom-action server's thread that runs it.
/:Call msi\.__wine_msi_call_dll_function/ {
    owner[thread()] = deferred ? action : ""
    next
}
/:Call msi\./ {
    if (owner[thread()] == "") next
    call = $0
    sub(/.*:Call msi\./, "", call)
    sub(/\(.*/, "", call)
    if (call == "MsiGetPropertyW") {
        name = $0
        sub(/^[^"]*"/, "", name)
        sub(/".*/, "", name)
        if (name != "CustomActionData" && name != "ProductCode" && name != "UserSID")
            print owner[thread()] " reads the property " name
    } else if (call !~ /^(MsiGetMode|MsiSetMode|MsiProcessMessage|MsiCreateRecord|MsiRecord[A-Za-z]*|MsiCloseHandle|MsiFormatRecordW|MsiGetLanguage|MsiGetLastErrorRecord)$/) {
        print owner[thread()] " calls " call
    }
}
function thread(    id) {
    id = $0
    sub(/:.*/, "", id)
    return id
}
