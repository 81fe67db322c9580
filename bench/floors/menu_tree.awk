# Prints name and caption of the parts that a menu tree offers: the floor for reading it.
/^ITEM/ {
    name = $2
    sub(/\.cgi.*/, "", name)
    sub(/.*\//, "", name)
    acl = ""
    caption = name
}
$1 == "ACL" { acl = $3 }
$1 == "CAP" && match($0, /".+"/) && RLENGTH > 2 { caption = substr($0, RSTART + 1, RLENGTH - 2) }
/^}/ {
    if (acl ~ /auto/ && name != "lcrwizard" && name != "isdnwizard" && name != "isdnsignaling") {
        print (acl ~ /extension/ ? "extension" : "general"), name, caption
    }
}
