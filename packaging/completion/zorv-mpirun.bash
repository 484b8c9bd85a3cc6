# Bash completion of the options of zorv-mpirun and zorv-mpirun-info. The options come first.
# After the first other argument, the command line belongs to the MPI launcher and the
# program, and file names are completed.
# shellcheck shell=bash

# For each option: the long spelling, the type of its value (none for a switch), and the
# spellings of manual-launch mode.
_zorv_mpirun_options=(
# generated: options (by tools/generate-from-tables, from backend/options.def)
    "--zorvhost host -zorvhost --host -host"
    "--zorvport text -zorvport --port -port"
    "--zorvsession text -zorvsession --session -session"
    "--zorvsessionfile file -zorvsessionfile --sessionfile -sessionfile"
    "--zorvsessioncookie text -zorvsessioncookie --sessioncookie -sessioncookie"
    "--zorvnosessioncookie none"
    "--zorvshareddirectory directory -s -shareddirectory --shareddirectory"
    "--zorvtarball file --tarball -tarball"
    "--zorvyourname host --yourname"
    "--zorvattach process -a -attach --attach"
    "--zorvcount text"
    "--zorvoffset text"
    "--zorvexplicittarget none"
    "--zorvensureoneperhost none"
    "--zorvforked none"
    "--zorvmpirun none"
    "--zorvmanuallaunch none"
    "--zorvdebug none -d -debug --debug"
    "--zorvverbose none -v -verbose --verbose"
    "--zorvroot none -r -root --root"
    "--zorvprogress none -progress --progress"
    "--zorvlog file -log --log"
    "--zorvclientlog file -clientlog --clientlog"
    "--zorvreplay file -p -replay --replay"
    "--zorvwaitfortopologyfile none"
# end of generated
)

# Whether the environment turns manual-launch mode on.
_zorv_mpirun_is_manual()
{
    local value=${ZORV_MANUAL_LAUNCH-${PELK_MANUAL_LAUNCH-${TALVORA_MANUAL_LAUNCH-off}}}
    case ${value,,} in
    no | off | disable | disabled | 0) return 1 ;;
    esac
}

_zorv_mpirun()
{
    local -A long=() simple=()
    local option name kind others other
    for option in "${_zorv_mpirun_options[@]}"; do
        read -r name kind others <<<"$option"
        long[$name]=$kind
        for other in $others; do
            simple[$other]=$kind
        done
    done

    local manual=
    if _zorv_mpirun_is_manual; then
        manual=yes
    fi
    COMPREPLY=()

    # The type of the word at the cursor: an option (none), or that of an option's value.
    local state=none i word
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $state != none ]]; then
            state=none
        elif [[ $word && ${long[$word]-} ]]; then
            state=${long[$word]}
            [[ $word != --zorvmanuallaunch ]] || manual=yes
        elif [[ $manual && $word && ${simple[$word]-} ]]; then
            state=${simple[$word]}
        else
            return
        fi
    done

    local current=${COMP_WORDS[COMP_CWORD]}
    case $state in
    host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current") ;;
    directory)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -A directory -- "$current")
        ;;
    process)
        compopt +o default
        mapfile -t COMPREPLY < <(compgen -W "$(cd /proc && echo [0-9]*)" -- "$current")
        ;;
    text) compopt +o default ;;
    none)
        if [[ $current == -* ]]; then
            local all="${!long[*]}"
            if [[ $manual ]]; then
                all+=" ${!simple[*]} -h --help -? --"
            fi
            mapfile -t COMPREPLY < <(compgen -W "$all" -- "$current")
        fi
        ;;
    esac
}

complete -o default -F _zorv_mpirun zorv-mpirun

# zorv-mpirun-info has its own options, and then a launcher's command line.
_zorv_mpirun_info()
{
    local own=1 launcher=
    while ((own < COMP_CWORD)) && [[ ! $launcher ]]; do
        case ${COMP_WORDS[own]} in
        --json | --watch | --codes | --help | --version) ((own++)) ;;
        --bundle | --host) ((own += 2)) ;;
        zorv-mpirun | */zorv-mpirun) launcher=yes && ((own++)) ;;
        *) break ;;
        esac
    done
    if ((own > COMP_CWORD)); then
        [[ ${COMP_WORDS[COMP_CWORD - 1]} == --host ]] || return
        mapfile -t COMPREPLY < <(compgen -A hostname -- "${COMP_WORDS[COMP_CWORD]}")
        return
    fi
    local at_own=$((own == COMP_CWORD))
    COMP_WORDS=(zorv-mpirun "${COMP_WORDS[@]:own}")
    COMP_CWORD=$((COMP_CWORD - own + 1))
    _zorv_mpirun
    local current=${COMP_WORDS[COMP_CWORD]} words
    if ((at_own)) && [[ ! $launcher && $current == -* ]]; then
        mapfile -t words < <(compgen -W "--json --bundle --watch --codes --host --help --version" \
            -- "$current")
        COMPREPLY+=("${words[@]}")
    fi
}

complete -o default -F _zorv_mpirun_info zorv-mpirun-info
