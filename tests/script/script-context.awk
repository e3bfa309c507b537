# Reads msiexec's trace (WINEDEBUG=+msi,+relay, relay limited to msi.*) and
# prints each call of a deferred, rollback or commit custom action that a real
# installation script does not serve: a property other than CustomActionData,
# ProductCode and UserSID, or any installer function but those for messages,
# records and the run mode.
function thread() { return substr($0, 1, index($0, ":") - 1) }
/Handling custom action L"/ { # the action's name and hexadecimal type (0x400: in a script)
    split($0, part, "\"")
    type = substr(part[3], 3)
    sub(/ .*/, "", type)
    deferred = length(type) >= 3 && index("4567cdef", substr(type, length(type) - 2, 1)) > 0
    action = part[2]
}
/:Call msi\.__wine_msi_call_dll_function/ { owner[thread()] = deferred ? action : "" } # its thread
/:Call msi\.Msi/ && owner[thread()] != "" {
    split($0, part, "\"")
    call = substr($0, index($0, ":Call msi.") + 10)
    sub(/\(.*/, "", call)
    if (call == "MsiGetPropertyW" && part[2] !~ /^(CustomActionData|ProductCode|UserSID)$/)
        print owner[thread()] " reads the property " part[2]
    else if (call !~ /^(MsiGetPropertyW|MsiGetMode|MsiSetMode|MsiProcessMessage|MsiCreateRecord|MsiRecord.*|MsiCloseHandle|MsiFormatRecordW|MsiGetLanguage|MsiGetLastErrorRecord)$/)
        print owner[thread()] " calls " call
}
