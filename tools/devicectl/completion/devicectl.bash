# SPDX-License-Identifier: Apache-2.0
#
# bash's completion of devicectl. The program itself knows what may come next, and quotes it: labels of volumes are
# whatever a medium says, and nothing here may be read by the shell again.

_devicectl() {
    local reply
    COMPREPLY=()
    while IFS= read -r reply; do
        COMPREPLY+=("$reply")
    done < <(command "${1:-devicectl}" complete bash "${COMP_LINE:0:COMP_POINT}" "${COMP_WORDBREAKS}" 2>/dev/null)
}

complete -F _devicectl devicectl
