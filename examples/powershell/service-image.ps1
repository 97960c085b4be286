<#
.SYNOPSIS
Adds driver packages to an image file and saves it, with kestro.exe.

.EXAMPLE
.\service-image.ps1 -Image D:\install.wim -Mount D:\mount -Drivers D:\drivers -Results D:\results
#>
[CmdletBinding()]
param(
    [Parameter(Mandatory)] [string] $Image,
    [Parameter(Mandatory)] [string] $Mount,
    [Parameter(Mandatory)] [string] $Drivers,
    [Parameter(Mandatory)] [string] $Results,
    [string] $Kestro = "$PSScriptRoot\kestro.exe"
)

Set-StrictMode -Version Latest
$ErrorActionPreference = 'Stop'

# kestro.exe writes UTF-8.
[Console]::OutputEncoding = [Text.Encoding]::UTF8

# The JSON document of one command. Errors go to the console as kestro.exe writes them.
function Invoke-Kestro {
    $text = & $Kestro @args | Out-String
    if (-not $text.Trim()) {
        throw "kestro $($args -join ' ') ended with exit code $LASTEXITCODE"
    }
    return $text | ConvertFrom-Json
}

function Assert-Succeeded($Document) {
    if (-not $Document.succeeded) {
        throw "$($Document.failure.function) failed: $($Document.failure.hresult)"
    }
}

# kestro.exe writes no ResultFile over one that is there: a folder for this run.
$folder = Join-Path $Results (Get-Date -Format 'yyyyMMdd-HHmmss')
New-Item -ItemType Directory -Path $folder | Out-Null
$log = Join-Path $folder 'dism.log'

Assert-Succeeded (Invoke-Kestro mount $Image $Mount --json --log $log --result "$folder\mount.ini")
$saved = $false
try {
    # A package that fails does not keep the others out: each has its own entry. The call failed as a
    # whole when the document has a failure.
    $added = Invoke-Kestro driver add $Mount $Drivers --json --log $log --result "$folder\add.ini"
    if ($added.PSObject.Properties['failure']) {
        Assert-Succeeded $added
    }
    if ($added.PSObject.Properties['packages']) {
        $added.packages | Where-Object { -not $_.added } |
            ForEach-Object { Write-Warning "not added: $($_.inf), last error $($_.last_error)" }
    }

    $list = Invoke-Kestro driver list $Mount --json --log $log
    Assert-Succeeded $list
    $list.packages | Format-Table published_name, original_file

    Assert-Succeeded (Invoke-Kestro unmount $Mount --commit --json --log $log --result "$folder\unmount.ini")
    $saved = $true
}
finally {
    if (-not $saved) {
        Invoke-Kestro unmount $Mount --discard --json --log $log | Out-Null
    }
}
