# Completion for ./run and for the examples, in bash:
#
#     source tools/completion/run.bash
#
# Best in ~/.bashrc, with the whole path. Of a `run` that is not this project's it knows nothing.

_tevalon_root() {
    local root
    root=$(cd "$(dirname "${COMP_WORDS[0]}")" 2>/dev/null && pwd) || return 1
    [[ -f $root/docs/site/build.py ]] && printf '%s\n' "$root"
}

# _tevalon_offer WORD...: those that begin with what is typed.
_tevalon_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$*" -- "$current")
    # A value follows its option without a blank.
    [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null || true
}

_tevalon_files() {
    mapfile -t COMPREPLY < <(compgen -f -X "$1" -- "$current"; compgen -d -S / -- "$current")
    [[ ${COMPREPLY[0]-} != */ ]] || compopt -o nospace 2>/dev/null || true
}

# Sets current to the word that is typed, and option to the one whose value it is. Bash takes
# --session=FILE apart at the sign.
_tevalon_words() {
    current=${COMP_WORDS[COMP_CWORD]}
    option=''
    if [[ $current == = ]]; then
        option=${COMP_WORDS[COMP_CWORD - 1]} current=''
    elif ((COMP_CWORD > 1)) && [[ ${COMP_WORDS[COMP_CWORD - 1]} == = ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    fi
}

_tevalon_browser_options="--session= --url= --sw --hw-dfb --hw-gles --disable-input
    --quit-on-render-crash --log --save-log= --help"

_tevalon_browser() {
    case $option in
        --session) _tevalon_files '!*.session' ;;
        --url) _tevalon_files '!*.html' ;;
        --save-log) _tevalon_files '' ;;
        *) _tevalon_offer "$_tevalon_browser_options $*" ;;
    esac
}

_tv_browser() {
    local current option
    COMPREPLY=()
    _tevalon_words
    _tevalon_browser
}

_tevalon_run() {
    local current option root
    COMPREPLY=()
    root=$(_tevalon_root) || return 0
    _tevalon_words
    if ((COMP_CWORD == 1)); then
        _tevalon_offer "$(sed -n 's/^verb_\([a-z-]*\)().*/\1/p' "$root/run") help"
        return
    fi
    case ${COMP_WORDS[1]} in
        demo) _tevalon_browser --trace ;;
        explore)
            _tevalon_offer "--all --planted --bound $(sed -n \
                's/^TEVALON_SCENARIO\(_WITH\)\?(\([A-Za-z0-9]*\)[,)].*/\2/p' "$root"/explore/*.cpp)"
            ;;
        faults) _tevalon_offer --all --planted ;;
        fuzz)
            _tevalon_offer "--seconds= --long --merge --planted readers $(find "$root/fuzz" -maxdepth 1 \
                -name '*.cpp' -exec basename -s .cpp {} +)"
            ;;
        soak) _tevalon_offer --hours= --only= --planted ;;
        mutants) _tevalon_offer --count= --seed= --group=locks --group=rest --quick --note ;;
        ends) _tevalon_offer --planted ;;
        bench | package) _tevalon_offer --quick ;;
        fresh) _tevalon_offer demo 'test' docs explore ;;
        test | armhf) _tevalon_offer -R -E -L -N -V -j --rerun-failed --repeat until-fail: ;;
    esac
}

complete -o default -F _tevalon_run run
complete -F _tv_browser tv_browser
