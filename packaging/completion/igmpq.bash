# bash completion for igmpq.
#
# Verbs, options and values come from the help of the command that is being completed, so that there
# is no list here that could be of another version. State is queried from a running agent; without
# one, interfaces are those of the machine. Functions print candidates, one a line.

# The command as it was typed. An agent that hangs must not hang the shell.
_igmpq_ask() {
  timeout "${IGMPQ_COMPLETION_TIMEOUT:-2}" "${_igmpq_program/#\~\//$HOME/}" "$@" 2>/dev/null </dev/null
}

# The same, sent to the agent that the line names.
_igmpq_ask_agent() {
  local socket=()
  [[ -n $_igmpq_socket ]] && socket=(--socket "${_igmpq_socket/#\~\//$HOME/}")
  _igmpq_ask "$@" "${socket[@]}"
}

_igmpq_verbs() {
  _igmpq_ask --help | sed -n '/^Subcommands:/,$ s/^  \([a-z]\+\) .*/\1/p'
  printf '%s\n' --help --version
}

# The options of a verb, each with the placeholder of its value: "--send-query on|off".
_igmpq_options() {
  { _igmpq_ask "$1" --help-all || _igmpq_ask "$1" --help; } | sed 's/ \(Excludes\|Needs\): .*//' | sed -n '/^Options:/,$ {
    s/^  -h,--help .*/-h\n--help/p; t
    s/^  \(--[a-z0-9-]\+\) \([^ =]\+\).*/\1 \2/p; t
    s/^  \(--[a-z0-9-]\+\).*/\1/p
  }'
}

_igmpq_machine_interfaces() {
  local path
  for path in /sys/class/net/*; do
    [[ -e $path && ${path##*/} != lo ]] && echo "${path##*/}"
  done
}

_igmpq_agent_interfaces() {
  local known
  known=$(_igmpq_ask_agent get --complete config/ | cut -d / -f 2 | sort -u)
  if [[ -n $known ]]; then echo "$known"; else _igmpq_machine_interfaces; fi
}

# The list in the line of a verb's help that begins with "WORD is".
_igmpq_listed() {
  _igmpq_ask "$1" --help | sed -n "s/^$2 is \(one of \)\?\([^;(.]*\).*/\2/p" |
    sed 's/, \| and \| or /\n/g; s/ *$//'
}

_igmpq_handles() {
  _igmpq_ask_agent trace --handles --json | grep -o '"name": *"[^"]*"' | cut -d '"' -f 4
}

_igmpq_types() {
  _igmpq_ask types | sed -e 1d -e 's/ .*//'
}

# The values of an option that is no file.
_igmpq_values() {
  local verb=$1 option=$2 kind=$3 begun=$4
  case $verb,$option,$kind in
    *,*,*\|*) tr '|' '\n' <<<"$kind" ;;
    trace,--handle,*) _igmpq_handles ;;
    store,--forget,*) _igmpq_agent_interfaces ;;
    trace,--level,*) printf '%s\n' {-1..9} ;;
    get,--complete,*) _igmpq_ask_agent get --complete "$begun" ;;
  esac
}

# The placeholder of an option's value, from the list of a verb's options.
_igmpq_kind() {
  local name kind
  while read -r name kind; do
    [[ $name == "$1" ]] && echo "$kind"
  done <<<"$2"
}

_igmpq_prefixed() {
  local line
  while IFS= read -r line; do
    echo "$1$line"
  done
}

# The settings, each with its equals sign; behind that sign, its values.
_igmpq_settings() {
  local name=${1%%=*} option
  if [[ $1 == *=* ]]; then
    option=$(sed 's/[A-Z]/-\l&/g' <<<"${name#--}")
    _igmpq_kind "--$option" "$(_igmpq_options run)" | tr '|' '\n' | sed '/^[A-Z]/ d' |
      _igmpq_prefixed "$name="
  else
    _igmpq_listed set ATTRIBUTE | sed 's/$/=/'
  fi
}

# The words that can follow that many other words of a verb.
_igmpq_words() {
  local verb=$1 before=$2 begun=$3
  case $verb,$before in
    run,*) _igmpq_machine_interfaces ;;
    show,0) _igmpq_listed show PART && _igmpq_agent_interfaces ;;
    show,* | watch,* | set,0 | call,0) _igmpq_agent_interfaces ;;
    set,*) _igmpq_settings "$begun" ;;
    clear,0) echo groups ;;
    clear,1) _igmpq_agent_interfaces ;;
    call,1) _igmpq_listed call OPERATION ;;
    get,*) _igmpq_ask_agent get --complete "$begun" ;;
    types,0) _igmpq_types ;;
  esac
}

# The words up to the cursor as they were typed: the shell splits them at equals signs and colons.
_igmpq_line() {
  local part joins=
  words=()
  for part in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
    if ((${#words[@]} > 1)) && [[ -n $joins || $part == [=:]* ]]; then
      words[-1]+=$part
    else
      words+=("$part")
    fi
    joins=
    [[ $part == *[=:] ]] && joins=yes
  done
}

# The number of words before the one to complete that are neither options nor their values. Finds
# the option whose value is to be completed, too, and the socket.
_igmpq_parse() {
  local at
  for ((at = 2; at < ${#words[@]} - 1; at++)); do
    if [[ -n $option ]]; then
      [[ $option == --socket ]] && _igmpq_socket=${words[at]}
      option=
    elif [[ ${words[at]} == --socket=* ]]; then
      _igmpq_socket=${words[at]#*=}
    elif [[ -n $(_igmpq_kind "${words[at]}" "$options") ]]; then
      option=${words[at]}
    elif [[ ${words[at]} != -* ]]; then
      ((before += 1))
    fi
  done
}

# The candidates that begin with the word. The shell replaces the text behind the last equals sign
# or colon.
_igmpq_reply() {
  local candidate breaks=${COMP_WORDBREAKS//[^=:]/} typed=
  [[ -n $breaks && $word =~ ^.*[$breaks] ]] && typed=${BASH_REMATCH[0]}
  while IFS= read -r candidate; do
    [[ -n $candidate && $candidate == "$word"* ]] && COMPREPLY+=("${candidate#"$typed"}")
  done
  # A setting continues behind its equals sign, a path behind each of its parts.
  [[ ${COMPREPLY[0]-} == *= || $verb == get ]] && compopt -o nospace 2>/dev/null
  return 0
}

_igmpq_reply_files() {
  compopt -o filenames 2>/dev/null
  _igmpq_reply < <(compgen -f -- "${word#"$1"}" | _igmpq_prefixed "$1")
}

_igmpq() {
  local words word verb options option= kind begun= before=0
  local _igmpq_socket= _igmpq_program=${COMP_WORDS[0]}
  COMPREPLY=()
  _igmpq_line
  word=${words[-1]#[\"\']}
  if ((${#words[@]} == 2)); then
    _igmpq_reply < <(_igmpq_verbs)
    return
  fi
  verb=${words[1]}
  options=$(_igmpq_options "$verb")
  _igmpq_parse
  if [[ -z $option && $word == --*=* && $verb != set ]]; then
    option=${word%%=*}
    begun=$option=
  fi
  if [[ -n $option ]]; then
    kind=$(_igmpq_kind "$option" "$options")
    case $kind in
      PATH | FILE) _igmpq_reply_files "$begun" ;;
      *) _igmpq_reply < <(_igmpq_values "$verb" "$option" "$kind" "${word#"$begun"}" |
        _igmpq_prefixed "$begun") ;;
    esac
  elif [[ $word == -* ]]; then
    _igmpq_reply < <(cut -d ' ' -f 1 <<<"$options")
  elif [[ $verb,$before == @(replay|check),0 ]]; then
    _igmpq_reply_files ""
  else
    _igmpq_reply < <(_igmpq_words "$verb" "$before" "$word")
  fi
}

complete -F _igmpq igmpq
